#include "supervisor/SupervisorThread.h"

#include "platform/Constants.h"
#include "platform/Files.h"
#include "platform/Sync.h"
#include "supervisor/CommandQueue.h"
#include "supervisor/UserStore.h"
#include "supervisor/WatcherLaunch.h"
#include "supervisor/WatcherLinks.h"
#include "watcher/ControlPipe.h"

#include <string>
#include <vector>

namespace hf {

namespace {

constexpr std::size_t kWatcherPipePrefixLength = std::char_traits<char16_t>::length(kWatcherPipePrefix);

// The prefix test is exact, letter case included; a shorter name fails at its
// terminator.
bool IsWatcherPipe(const WCHAR* fileName)
{
    return std::char_traits<char16_t>::compare(fileName, kWatcherPipePrefix, kWatcherPipePrefixLength) == 0;
}

// Watchers that outlived an earlier run of the service are found by their
// pipes and told to run. Where the system cannot list pipes, nothing is found.
void ReconnectRunningWatchers(WatcherLinks& links, EventReporter& events)
{
    os::WIN32_FIND_DATAW found;
    UniqueFindHandle const listing(os::FindFirstFileW(u"\\\\.\\pipe\\*", &found));
    if (!listing) {
        return;
    }
    do {
        if (IsWatcherPipe(found.cFileName)) {
            ConnectToWatcher(u"\\\\.\\pipe\\" + std::u16string(found.cFileName), links, events, CMD_RUN);
        }
    } while (os::FindNextFileW(listing.get(), &found));
}

// Serves the queue until CMD_STOP or a failed wait.
void ServeCommands(WatcherLinks& links, EventReporter& events)
{
    CommandQueue& queue = TheCommandQueue();
    DWORD currentCommand = CMD_RUN;
    for (;;) {
        HANDLE semaphore = queue.Semaphore();
        if (os::WaitForMultipleObjects(1, &semaphore, FALSE, INFINITE) != WAIT_OBJECT_0) {
            events.Report(EVENTLOG_ERROR_TYPE, MSG_WAIT_MULTIPLE_FAILED, {LastErrorText()});
            return;
        }
        Command const command = queue.Take();
        switch (command.code) {
            case CMD_PAUSE:
            case CMD_RUN:
                BroadcastCommand(command.code, links, events);
                currentCommand = command.code;
                break;
            case CMD_STOP:
                BroadcastCommand(CMD_STOP, links, events);
                return;
            case CMD_CONNECT:
                ConnectToWatcher(command.argument, links, events, currentCommand);
                break;
            default:
                break;
        }
    }
}

}  // namespace

DWORD SupervisorThread(void* /*parameter*/)
{
    // Declared in the order they are made, so they go in the reverse one: the
    // users, the reporter, the store key, and last the links, whose pipe
    // handles are left open for the end of the process.
    WatcherLinks links;
    // A store that could not be opened is not looked at here: its listing
    // fails on the null key and reports why.
    UserStore const store = UserStore::Open();
    EventReporter events(kCategoryService);
    ReconnectRunningWatchers(links, events);
    std::vector<std::u16string> users;
    EnumerateUsers(store.key(), events, users);
    LaunchWatchers(users, store.key(), links, events);
    ServeCommands(links, events);
    return 0;
}

}  // namespace hf
