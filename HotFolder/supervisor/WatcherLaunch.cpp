#include "supervisor/WatcherLaunch.h"

#include "acrobat/PipeNames.h"
#include "platform/Files.h"
#include "platform/Paths.h"
#include "supervisor/BinaryValueReader.h"
#include "supervisor/PasswordProtection.h"
#include "watcher/ControlPipe.h"

namespace hf {

namespace {
// STARTUPINFOW's size as the service has always declared it (the 32-bit
// structure's); process creation reads the fields it needs whatever cb says.
constexpr DWORD kStartupInfoSize = 68;
}  // namespace

void LaunchWatchers(std::vector<std::u16string> const& users, HKEY storeKey, WatcherLinks const& links,
                    EventReporter& events)
{
    for (std::u16string const& user : users) {
        BinaryValueReader const value(storeKey, user);
        if (value.status() != 0) {
            continue;
        }
        if (CountLinks(links, MakePipeName(kWatcherPipePrefix, user)) == 0) {
            LaunchWatcherForUser(user, value.data(), value.size(), events);
        }
    }
}

bool LaunchWatcherForUser(std::u16string const& user, BYTE* blob, DWORD blobSize, EventReporter& events)
{
    auto unprotected = UnprotectPassword(user, blob, blobSize, events);
    if (!unprotected) {
        return false;
    }
    bool launched = false;
    {
        LogonProcessCreator creator;
        if (creator.Logon(events, user, unprotected->password())) {
            launched = LaunchWatcherProcess(creator, user, events);
        }
        unprotected->Wipe();
    }  // The creator unloads the profile and closes the token here, while the watcher runs on.
    return launched;
}

bool LaunchWatcherProcess(ProcessCreator& creator, std::u16string const& user, EventReporter& events)
{
    WCHAR path[os::kMaxPath] = {};
    os::GetModuleFileNameW(os::GetModuleHandleW(nullptr), path, os::kMaxPath);
    WCHAR folder[os::kMaxPath] = {};
    std::char_traits<WCHAR>::copy(folder, path, os::kMaxPath);
    os::PathRemoveFileSpecW(folder);
    std::u16string const commandLine = std::u16string(os::PathFindFileNameW(path)) + u" -asservice";

    os::STARTUPINFOW startup;
    startup.cb = kStartupInfoSize;
    // "", not null: the new process connects to a window station by the
    // system's rules for its own logon session instead of inheriting the
    // service's.
    WCHAR noDesktop[] = u"";
    startup.lpDesktop = noDesktop;

    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_LAUNCHING_WATCHER, {user, path, commandLine});
    std::u16string writableLine = commandLine;
    os::PROCESS_INFORMATION process;
    if (!creator.StartProcess(path, writableLine.data(), nullptr, nullptr, FALSE, 0, nullptr, folder, &startup,
                              &process)) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_CREATE_PROCESS_AS_USER_FAILED, {user, commandLine, LastErrorText()});
        return false;
    }
    // The service keeps no hold on its watchers.
    os::CloseHandle(process.hProcess);
    os::CloseHandle(process.hThread);
    return true;
}

}  // namespace hf
