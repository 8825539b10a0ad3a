#include <windows.h>
// After windows.h, which they build on. GetUserNameExW lives in the security
// headers, which want to be told which interface they serve.
#define SECURITY_WIN32
#include <secext.h>

#include <cstddef>

#include "platform/Process.h"

namespace hf::os {

static_assert(sizeof(STARTUPINFOW) == sizeof(::STARTUPINFOW), "STARTUPINFOW has the Windows layout");
static_assert(offsetof(STARTUPINFOW, hStdError) == offsetof(::STARTUPINFOW, hStdError),
              "STARTUPINFOW has the Windows layout");
static_assert(sizeof(PROCESS_INFORMATION) == sizeof(::PROCESS_INFORMATION),
              "PROCESS_INFORMATION has the Windows layout");

BOOL CreateProcessW(const WCHAR* applicationName, WCHAR* commandLine, void* processAttributes, void* threadAttributes,
                    BOOL inheritHandles, DWORD creationFlags, void* environment, const WCHAR* currentDirectory,
                    STARTUPINFOW* startupInfo, PROCESS_INFORMATION* processInformation)
{
    return ::CreateProcessW(
        reinterpret_cast<LPCWSTR>(applicationName), reinterpret_cast<LPWSTR>(commandLine),
        static_cast<LPSECURITY_ATTRIBUTES>(processAttributes), static_cast<LPSECURITY_ATTRIBUTES>(threadAttributes),
        inheritHandles, creationFlags, environment, reinterpret_cast<LPCWSTR>(currentDirectory),
        reinterpret_cast<::LPSTARTUPINFOW>(startupInfo), reinterpret_cast<::LPPROCESS_INFORMATION>(processInformation));
}

BOOL TerminateProcess(HANDLE process, unsigned exitCode)
{
    return ::TerminateProcess(process, exitCode);
}

BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode)
{
    ::DWORD code = 0;
    BOOL const ok = ::GetExitCodeProcess(process, &code);
    if (ok) {
        *exitCode = code;
    }
    return ok;
}

BOOL GetUserNameExW(int nameFormat, WCHAR* nameBuffer, DWORD* size)
{
    ::ULONG length = *size;
    BOOLEAN const ok =
        ::GetUserNameExW(static_cast<EXTENDED_NAME_FORMAT>(nameFormat), reinterpret_cast<LPWSTR>(nameBuffer), &length);
    *size = length;
    return ok ? TRUE : FALSE;
}

}  // namespace hf::os
