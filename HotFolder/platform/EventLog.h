// The Application event log and the process-owner lookup that stamps every
// report with its user.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// RegisterEventSourceW: a handle for reporting under the named source; null on failure.
HANDLE RegisterEventSourceW(const WCHAR* serverName, const WCHAR* sourceName);

// ReportEventW: writes one entry (type, category, event id, user SID, insertion strings).
BOOL ReportEventW(HANDLE eventSource, WORD type, WORD category, DWORD eventId, PSID userSid, WORD numStrings,
                  DWORD dataSize, const WCHAR** strings, void* rawData);

// DeregisterEventSource: closes a handle from RegisterEventSourceW.
BOOL DeregisterEventSource(HANDLE eventSource);

// GetCurrentProcess: the pseudo-handle of the calling process.
HANDLE GetCurrentProcess();

// GetSecurityInfo: security information of an object; the descriptor is freed with LocalFree.
// Returns a Win32 error code.
DWORD GetSecurityInfo(HANDLE object, DWORD objectType, DWORD securityInfo, PSID* owner, PSID* group, void** dacl,
                      void** sacl, PSECURITY_DESCRIPTOR* securityDescriptor);

// LocalFree: frees memory that a system call allocated for the caller; null on success.
HLOCAL LocalFree(HLOCAL memory);

// LocalAlloc: a block of the process heap that LocalFree releases; null on failure.
HLOCAL LocalAlloc(unsigned flags, std::size_t bytes);

// LoadStringW: copies string resource `id` of the module into `buffer` (at most
// `bufferMax` characters with the terminator); returns the characters copied, 0 if absent.
int LoadStringW(HINSTANCE module, unsigned id, WCHAR* buffer, int bufferMax);

}  // namespace hf::os
