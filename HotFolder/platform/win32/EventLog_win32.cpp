#include <windows.h>
// After windows.h, which it builds on.
#include <aclapi.h>

#include "platform/EventLog.h"

namespace hf::os {

HANDLE RegisterEventSourceW(const WCHAR* serverName, const WCHAR* sourceName)
{
    return ::RegisterEventSourceW(reinterpret_cast<LPCWSTR>(serverName), reinterpret_cast<LPCWSTR>(sourceName));
}

BOOL ReportEventW(HANDLE eventSource, WORD type, WORD category, DWORD eventId, PSID userSid, WORD numStrings,
                  DWORD dataSize, const WCHAR** strings, void* rawData)
{
    return ::ReportEventW(eventSource, type, category, eventId, userSid, numStrings, dataSize,
                          reinterpret_cast<LPCWSTR*>(strings), rawData);
}

BOOL DeregisterEventSource(HANDLE eventSource)
{
    return ::DeregisterEventSource(eventSource);
}

HANDLE GetCurrentProcess()
{
    return ::GetCurrentProcess();
}

DWORD GetSecurityInfo(HANDLE object, DWORD objectType, DWORD securityInfo, PSID* owner, PSID* group, void** dacl,
                      void** sacl, PSECURITY_DESCRIPTOR* securityDescriptor)
{
    return ::GetSecurityInfo(object, static_cast<SE_OBJECT_TYPE>(objectType), securityInfo, owner, group,
                             reinterpret_cast<PACL*>(dacl), reinterpret_cast<PACL*>(sacl), securityDescriptor);
}

HLOCAL LocalFree(HLOCAL memory)
{
    return ::LocalFree(memory);
}

HLOCAL LocalAlloc(unsigned flags, std::size_t bytes)
{
    return ::LocalAlloc(flags, bytes);
}

int LoadStringW(HINSTANCE module, unsigned id, WCHAR* buffer, int bufferMax)
{
    return ::LoadStringW(static_cast<::HINSTANCE>(module), id, reinterpret_cast<LPWSTR>(buffer), bufferMax);
}

}  // namespace hf::os
