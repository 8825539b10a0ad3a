#include <windows.h>
// After windows.h, which they build on.
#include <lm.h>
#include <userenv.h>

#include <cstddef>

#include "platform/Logon.h"

namespace hf::os {

static_assert(sizeof(PROFILEINFOW) == sizeof(::PROFILEINFOW), "PROFILEINFOW has the Windows layout");
static_assert(offsetof(PROFILEINFOW, hProfile) == offsetof(::PROFILEINFOW, hProfile),
              "PROFILEINFOW has the Windows layout");
static_assert(sizeof(USER_INFO_4) == sizeof(::USER_INFO_4), "USER_INFO_4 has the Windows layout");
static_assert(offsetof(USER_INFO_4, usri4_profile) == offsetof(::USER_INFO_4, usri4_profile),
              "USER_INFO_4 has the Windows layout");

BOOL LogonUserW(const WCHAR* userName, const WCHAR* domain, const WCHAR* password, DWORD logonType, DWORD logonProvider,
                HANDLE* token)
{
    return ::LogonUserW(reinterpret_cast<LPCWSTR>(userName), reinterpret_cast<LPCWSTR>(domain),
                        reinterpret_cast<LPCWSTR>(password), logonType, logonProvider, token);
}

BOOL LoadUserProfileW(HANDLE token, PROFILEINFOW* profileInfo)
{
    return ::LoadUserProfileW(token, reinterpret_cast<::LPPROFILEINFOW>(profileInfo));
}

BOOL UnloadUserProfile(HANDLE token, HANDLE profile)
{
    return ::UnloadUserProfile(token, profile);
}

DWORD NetUserGetInfo(const WCHAR* serverName, const WCHAR* userName, DWORD level, BYTE** buffer)
{
    return ::NetUserGetInfo(reinterpret_cast<LPCWSTR>(serverName), reinterpret_cast<LPCWSTR>(userName), level,
                            reinterpret_cast<LPBYTE*>(buffer));
}

DWORD NetApiBufferFree(void* buffer)
{
    return ::NetApiBufferFree(buffer);
}

BOOL CreateProcessAsUserW(HANDLE token, const WCHAR* applicationName, WCHAR* commandLine, void* processAttributes,
                          void* threadAttributes, BOOL inheritHandles, DWORD creationFlags, void* environment,
                          const WCHAR* currentDirectory, STARTUPINFOW* startupInfo,
                          PROCESS_INFORMATION* processInformation)
{
    return ::CreateProcessAsUserW(
        token, reinterpret_cast<LPCWSTR>(applicationName), reinterpret_cast<LPWSTR>(commandLine),
        static_cast<LPSECURITY_ATTRIBUTES>(processAttributes), static_cast<LPSECURITY_ATTRIBUTES>(threadAttributes),
        inheritHandles, creationFlags, environment, reinterpret_cast<LPCWSTR>(currentDirectory),
        reinterpret_cast<::LPSTARTUPINFOW>(startupInfo), reinterpret_cast<::LPPROCESS_INFORMATION>(processInformation));
}

}  // namespace hf::os
