#include "supervisor/LogonProcessCreator.h"

#include "WideText.h"
#include "platform/Errors.h"
#include "platform/Logon.h"

namespace hf {

LogonProcessCreator::~LogonProcessCreator()
{
    if (profile_ != INVALID_HANDLE_VALUE) {
        os::UnloadUserProfile(token_, profile_);
    }
    if (token_ != INVALID_HANDLE_VALUE) {
        os::CloseHandle(token_);
    }
}

BOOL LogonProcessCreator::StartProcess(const WCHAR* applicationName, WCHAR* commandLine, void* processAttributes,
                                       void* threadAttributes, BOOL inheritHandles, DWORD creationFlags,
                                       void* environment, const WCHAR* currentDirectory, os::STARTUPINFOW* startupInfo,
                                       os::PROCESS_INFORMATION* processInformation)
{
    return os::CreateProcessAsUserW(token_, applicationName, commandLine, processAttributes, threadAttributes,
                                    inheritHandles, creationFlags, environment, currentDirectory, startupInfo,
                                    processInformation);
}

bool LogonProcessCreator::Logon(EventReporter& events, std::u16string const& user, SecretText const& password)
{
    std::size_t const slash = user.find(u'\\');
    if (slash == std::u16string::npos) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_NO_SLASH_IN_USER, {user});
        return false;
    }
    std::u16string const domain = user.substr(0, slash);
    // Further backslashes stay in the name.
    std::u16string name = user.substr(slash + 1);

    HANDLE token = nullptr;
    if (!os::LogonUserW(name.c_str(), domain.c_str(), password.c_str(), LOGON32_LOGON_INTERACTIVE,
                        LOGON32_PROVIDER_DEFAULT, &token)) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_LOGON_FAILED, {name, domain, LastErrorText()});
        return false;
    }
    token_ = token;

    os::PROFILEINFOW profile;
    // The structure's own size for this build: the system refuses any other.
    profile.dwSize = sizeof(os::PROFILEINFOW);
    profile.lpUserName = name.data();
    // The domain goes to the network API as the server's name, as it is. An
    // account without a record there is loaded with its local profile, silently.
    BYTE* record = nullptr;
    bool const haveRecord = os::NetUserGetInfo(domain.c_str(), name.c_str(), 4, &record) == NERR_Success;
    if (haveRecord) {
        profile.lpProfilePath = reinterpret_cast<os::USER_INFO_4*>(record)->usri4_profile;
    }
    BOOL const loaded = os::LoadUserProfileW(token_, &profile);
    DWORD const loadError = os::GetLastError();
    // Only now: the profile path points into the record.
    if (haveRecord) {
        os::NetApiBufferFree(record);
    }
    if (!loaded) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_LOAD_USER_PROFILE_FAILED,
                      {name, DecimalText(static_cast<std::int32_t>(loadError))});
        return false;
    }
    profile_ = profile.hProfile;
    return true;
}

}  // namespace hf
