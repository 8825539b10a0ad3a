#include <windows.h>
// After windows.h, which it builds on.
#include <wincrypt.h>

#include <cstddef>

#include "platform/Crypto.h"

namespace hf::os {

static_assert(sizeof(DATA_BLOB) == sizeof(::DATA_BLOB), "DATA_BLOB has the Windows layout");
static_assert(offsetof(DATA_BLOB, pbData) == offsetof(::DATA_BLOB, pbData), "DATA_BLOB has the Windows layout");

BOOL CryptProtectData(DATA_BLOB* dataIn, const WCHAR* description, DATA_BLOB* optionalEntropy, void* reserved,
                      void* promptStruct, DWORD flags, DATA_BLOB* dataOut)
{
    return ::CryptProtectData(reinterpret_cast<::DATA_BLOB*>(dataIn), reinterpret_cast<LPCWSTR>(description),
                              reinterpret_cast<::DATA_BLOB*>(optionalEntropy), reserved,
                              static_cast<CRYPTPROTECT_PROMPTSTRUCT*>(promptStruct), flags,
                              reinterpret_cast<::DATA_BLOB*>(dataOut));
}

BOOL CryptUnprotectData(DATA_BLOB* dataIn, WCHAR** description, DATA_BLOB* optionalEntropy, void* reserved,
                        void* promptStruct, DWORD flags, DATA_BLOB* dataOut)
{
    return ::CryptUnprotectData(reinterpret_cast<::DATA_BLOB*>(dataIn), reinterpret_cast<LPWSTR*>(description),
                                reinterpret_cast<::DATA_BLOB*>(optionalEntropy), reserved,
                                static_cast<CRYPTPROTECT_PROMPTSTRUCT*>(promptStruct), flags,
                                reinterpret_cast<::DATA_BLOB*>(dataOut));
}

}  // namespace hf::os
