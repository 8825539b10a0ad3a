// Logging a user on with a password, the user's profile, the account record of
// the network API, and starting a process under a logon token.
#pragma once

#include "platform/Process.h"
#include "platform/Types.h"

namespace hf::os {

// LogonUserW: logs the account `userName` of `domain` on with its password; the token
// is closed with CloseHandle. FALSE on failure (ERROR_LOGON_FAILURE for an unknown
// account or a wrong password).
BOOL LogonUserW(const WCHAR* userName, const WCHAR* domain, const WCHAR* password, DWORD logonType, DWORD logonProvider,
                HANDLE* token);

// What LoadUserProfileW is told and gives back; the Win32 PROFILEINFOW layout.
struct PROFILEINFOW {
    DWORD dwSize = 0;
    DWORD dwFlags = 0;
    WCHAR* lpUserName = nullptr;
    WCHAR* lpProfilePath = nullptr;
    WCHAR* lpDefaultPath = nullptr;
    WCHAR* lpServerName = nullptr;
    WCHAR* lpPolicyPath = nullptr;
    HANDLE hProfile = nullptr;
};

// LoadUserProfileW: loads the profile of the token's user (from lpProfilePath when
// given) and sets hProfile; ERROR_INVALID_PARAMETER when dwSize is not the structure's
// size or there is no user name.
BOOL LoadUserProfileW(HANDLE token, PROFILEINFOW* profileInfo);

// UnloadUserProfile: unloads a profile that LoadUserProfileW loaded.
BOOL UnloadUserProfile(HANDLE token, HANDLE profile);

// The account record of level 4, the Win32 USER_INFO_4 layout (only usri4_profile,
// the roaming profile's path, is read here).
struct USER_INFO_4 {
    WCHAR* usri4_name;
    WCHAR* usri4_password;
    DWORD usri4_password_age;
    DWORD usri4_priv;
    WCHAR* usri4_home_dir;
    WCHAR* usri4_comment;
    DWORD usri4_flags;
    WCHAR* usri4_script_path;
    DWORD usri4_auth_flags;
    WCHAR* usri4_full_name;
    WCHAR* usri4_usr_comment;
    WCHAR* usri4_parms;
    WCHAR* usri4_workstations;
    DWORD usri4_last_logon;
    DWORD usri4_last_logoff;
    DWORD usri4_acct_expires;
    DWORD usri4_max_storage;
    DWORD usri4_units_per_week;
    BYTE* usri4_logon_hours;
    DWORD usri4_bad_pw_count;
    DWORD usri4_num_logons;
    WCHAR* usri4_logon_server;
    DWORD usri4_country_code;
    DWORD usri4_code_page;
    PSID usri4_user_sid;
    DWORD usri4_primary_group_id;
    WCHAR* usri4_profile;
    WCHAR* usri4_home_dir_drive;
    DWORD usri4_password_expired;
};

// NetUserGetInfo: the record of `userName` on the server `serverName` (null or "": this
// machine); the buffer is freed with NetApiBufferFree. Returns NERR_Success (0) or an error.
DWORD NetUserGetInfo(const WCHAR* serverName, const WCHAR* userName, DWORD level, BYTE** buffer);

// NetApiBufferFree: frees a buffer of the network API.
DWORD NetApiBufferFree(void* buffer);

// CreateProcessAsUserW: CreateProcessW for the user of a logon token. `startupInfo`'s
// lpDesktop names the window station and desktop ("": the system chooses).
BOOL CreateProcessAsUserW(HANDLE token, const WCHAR* applicationName, WCHAR* commandLine, void* processAttributes,
                          void* threadAttributes, BOOL inheritHandles, DWORD creationFlags, void* environment,
                          const WCHAR* currentDirectory, STARTUPINFOW* startupInfo,
                          PROCESS_INFORMATION* processInformation);

}  // namespace hf::os
