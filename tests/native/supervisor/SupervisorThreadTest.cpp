// The supervisor thread on the simulated machine, as stories of a service
// start: watchers found running, users launched, and the queued commands that
// follow. The thread runs on the test's thread until it takes CMD_STOP or its
// wait runs out of script (a failed wait); then the watchers read what the
// service wrote to them.
#include "ListeningWatcher.h"
#include "SimTest.h"
#include "acrobat/PipeNames.h"
#include "supervisor/CommandQueue.h"
#include "supervisor/SupervisorThread.h"
#include "supervisor/UserStore.h"
#include "watcher/ControlPipe.h"

#include <memory>

namespace hf::test {
namespace {

std::u16string WatcherPipe(std::u16string const& user)
{
    return MakePipeName(kWatcherPipePrefix, user);
}

class SupervisorThreadTest : public SimTest {
protected:
    SupervisorThreadTest()
    {
        world().processes.current.userName = u"NT AUTHORITY\\SYSTEM";
        // A launched watcher opens its control pipe under its user's name.
        world().processes.children.AddImage(world().processes.current.modulePath, [this](auto const& process) {
            launched.push_back(std::make_unique<ListeningWatcher>(WatcherPipe(process->userName)));
        });
        for (auto const* name : {u"alice", u"bob", u"carol"}) {
            world().accounts.Add({u"OFFICE", name, u"pw", u""});
        }
    }

    void Install(std::u16string const& user) { UserStore::Open().Install(user, u"pw"); }
    void Post(DWORD code, std::u16string argument = {}) { TheCommandQueue().Post(Command{code, std::move(argument)}); }

    // Runs the thread to its end, then lets the watchers read.
    void RunSupervisor(std::vector<ListeningWatcher*> const& watchers)
    {
        EXPECT_EQ(SupervisorThread(nullptr), 0u);
        for (ListeningWatcher* watcher : watchers) {
            watcher->Read();
        }
        world().RunApcs();
    }

    std::vector<std::string> StartedUsers()
    {
        std::vector<std::string> users;
        for (auto const& process : world().processes.children.Started()) {
            users.push_back(U8(process->userName));
        }
        return users;
    }

    std::vector<std::unique_ptr<ListeningWatcher>> launched;
};

TEST_F(SupervisorThreadTest, AtStartRunningWatchersAreToldToRunAndEveryOtherUserIsLaunched)
{
    Install(u"OFFICE\\alice");
    Install(u"OFFICE\\bob");
    Install(u"OFFICE\\carol");
    ListeningWatcher alice(WatcherPipe(u"OFFICE\\alice"));
    // Found by the listing but not taken for a watcher: the prefix test is exact.
    ListeningWatcher carol(u"\\\\.\\pipe\\TARNWICK_FOLDERWATCHER_OFFICE_carol");
    Post(CMD_STOP);

    RunSupervisor({&alice, &carol});
    EXPECT_EQ(EventIds(),
              (std::vector<DWORD>{MSG_CONNECTED_TO_WATCHER_PIPE, MSG_FOUND_INSTALLED_USER, MSG_FOUND_INSTALLED_USER,
                                  MSG_FOUND_INSTALLED_USER, MSG_LAUNCHING_WATCHER, MSG_LAUNCHING_WATCHER}))
        << "the start pass completes before the stop posted earlier is taken";
    EXPECT_EQ(StartedUsers(), (std::vector<std::string>{"OFFICE\\bob", "OFFICE\\carol"}));
    EXPECT_EQ(alice.Codes(), (std::vector<DWORD>{CMD_RUN, CMD_STOP}));
    EXPECT_TRUE(carol.Codes().empty());
    EXPECT_FALSE(alice.Broken()) << "the link stays open until the service process ends";
    EXPECT_EQ(world().eventLog.openSources, 0);
}

TEST_F(SupervisorThreadTest, CommandsAreRelayedInOrderAndAnAnnouncedWatcherGetsTheCurrentOne)
{
    ListeningWatcher alice(WatcherPipe(u"OFFICE\\alice"));
    Post(CMD_PAUSE);
    std::unique_ptr<ListeningWatcher> bob;
    world().After(10, [&] {
        bob = std::make_unique<ListeningWatcher>(WatcherPipe(u"OFFICE\\bob"));
        Post(CMD_CONNECT, WatcherPipe(u"OFFICE\\bob"));
        Post(0x4711);
        Post(CMD_RUN);
        Post(CMD_STOP);
    });

    RunSupervisor({&alice});
    bob->Read();
    world().RunApcs();
    EXPECT_EQ(EventIds(),
              (std::vector<DWORD>{MSG_CONNECTED_TO_WATCHER_PIPE, MSG_NO_USERS, MSG_CONNECTED_TO_WATCHER_PIPE}))
        << "the unknown code is consumed without a report";
    EXPECT_EQ(alice.Codes(), (std::vector<DWORD>{CMD_RUN, CMD_PAUSE, CMD_RUN, CMD_STOP}));
    EXPECT_EQ(bob->Codes(), (std::vector<DWORD>{CMD_PAUSE, CMD_RUN, CMD_STOP}));
}

TEST_F(SupervisorThreadTest, AWatcherThatExitedIsDroppedAtTheNextBroadcastAndAFailedWaitEndsTheThread)
{
    ListeningWatcher alice(WatcherPipe(u"OFFICE\\alice"));
    ListeningWatcher bob(WatcherPipe(u"OFFICE\\bob"));
    world().After(10, [&] {
        alice.Exit();
        Post(CMD_PAUSE);
    });
    world().After(20, [&] { Post(CMD_RUN); });

    RunSupervisor({&bob});
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_CONNECTED_TO_WATCHER_PIPE, MSG_CONNECTED_TO_WATCHER_PIPE,
                                              MSG_NO_USERS, MSG_WRITE_PIPE_FAILED, MSG_WAIT_MULTIPLE_FAILED}));
    EXPECT_EQ(U8(OnlyEvent(MSG_WRITE_PIPE_FAILED).strings.front()), U8(WatcherPipe(u"OFFICE\\alice")));
    EXPECT_EQ(RenderedEvents().back(), "WaitForMultipleObjects failed.  Error code: 6\r\n");
    EXPECT_EQ(bob.Codes(), (std::vector<DWORD>{CMD_RUN, CMD_PAUSE, CMD_RUN})) << "nothing broadcast on the way out";
}

}  // namespace
}  // namespace hf::test
