// The data protection API: a secret sealed to the account that protects it,
// so only that account can open it again.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// A counted byte buffer; the Win32 DATA_BLOB layout.
struct DATA_BLOB {
    DWORD cbData = 0;
    BYTE* pbData = nullptr;
};

// CryptProtectData: seals `dataIn` (with the optional entropy) to the calling account;
// `dataOut->pbData` is freed with LocalFree. FALSE on failure, the reason in GetLastError.
BOOL CryptProtectData(DATA_BLOB* dataIn, const WCHAR* description, DATA_BLOB* optionalEntropy, void* reserved,
                      void* promptStruct, DWORD flags, DATA_BLOB* dataOut);

// CryptUnprotectData: opens a blob from CryptProtectData, given the same entropy; the
// description (when asked for) and the data are freed with LocalFree. A damaged blob
// fails with ERROR_INVALID_DATA, another account's with NTE_BAD_KEY_STATE.
BOOL CryptUnprotectData(DATA_BLOB* dataIn, WCHAR** description, DATA_BLOB* optionalEntropy, void* reserved,
                        void* promptStruct, DWORD flags, DATA_BLOB* dataOut);

}  // namespace hf::os
