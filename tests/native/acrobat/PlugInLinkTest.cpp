// The watcher's link to the Acrobat plug-in, driven as the watcher loop
// drives it (Poll, then an alertable wait with the time-out Poll gave), with
// a scripted plug-in on the other end of the pipe. Stories: the plug-in's
// pipe is already open; jobs reuse it and a failed one is retried once; the
// plug-in never appears; Acrobat exits while it is awaited; the plug-in's
// zero reply; a relaunch that fails for good.
#include "SimTest.h"
#include "acrobat/AcrobatLauncher.h"
#include "acrobat/JobMessage.h"
#include "acrobat/PlugInLink.h"
#include "platform/Sync.h"
#include "platform/sim/SimPipePeers.h"

#include <boost/make_shared.hpp>

#include <optional>

namespace hf::test {
namespace {

constexpr char16_t kAcrobatExe[] = u"C:\\Program Files\\Adobe\\Acrobat\\Acrobat.exe";
constexpr char16_t kPlugInPipe[] = u"\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk";
constexpr char16_t kScript[] = u"C:\\Scripts\\stamp.py";
constexpr char16_t kOutput[] = u"C:\\Hot\\Done";

class PlugInLinkTest : public SimTest {
protected:
    PlugInLinkTest()
    {
        world().registry.SetString(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", kAcrobatExe);
        spec->Script = kScript;
        spec->OutputFolder = kOutput;
        plugIn = sim::ScriptedPipeServer::Create(kPlugInPipe);
    }

    // Acrobat is installed; its plug-in serves the pipe `plugInDelay` ms after
    // Acrobat starts, until Acrobat ends.
    void InstallAcrobat(DWORD plugInDelay)
    {
        auto server = plugIn;
        world().processes.children.AddImage(
            kAcrobatExe, [server, plugInDelay](auto const& process) { server->RunInside(process, plugInDelay); });
    }
    // Acrobat is installed, but its plug-in never creates the pipe.
    void InstallAcrobatWithoutPlugIn() { world().processes.children.AddImage(kAcrobatExe); }

    PlugInLink& Link(bool asService)
    {
        link.emplace(reporter, asService);
        return *link;
    }

    void Send(std::u16string const& input) { link->SendJob(input, spec); }

    // The watcher loop's turns, from the one that follows SendJob, until Poll
    // says the link is idle. False when the link stays busy with nothing left
    // that could ever end its wait (the loop would wait for good).
    bool RunUntilIdle()
    {
        for (int turn = 0; turn < 1000; ++turn) {
            if (!Turn()) {
                return true;
            }
            if (stuck) {
                return false;
            }
        }
        ADD_FAILURE() << "the link never settled";
        return false;
    }

    // One turn: Poll, and when busy the alertable wait with Poll's time-out.
    // Returns Poll's result.
    bool Turn()
    {
        DWORD timeout = 0;
        if (!link->Poll(timeout)) {
            return false;
        }
        lastTimeout = timeout;
        HANDLE const events[] = {neverSignalled.get()};
        stuck = os::WaitForMultipleObjectsEx(1, events, FALSE, timeout, TRUE) == WAIT_FAILED;
        return true;
    }

    std::vector<BYTE> Payload(std::u16string const& input) const
    {
        std::vector<BYTE> const message = EncodeJobMessage(input, kScript, kOutput);
        return std::vector<BYTE>(message.begin() + 4, message.end());
    }

    std::vector<std::shared_ptr<sim::ChildProcess>> Acrobats()
    {
        return world().processes.children.StartedFrom(kAcrobatExe);
    }

    std::shared_ptr<sim::ScriptedPipeServer> plugIn;
    HotFolderSpecPtr spec = boost::make_shared<HotFolderSpec>();
    EventReporter reporter{kCategoryUser};
    UniqueKernelHandle neverSignalled{os::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::optional<PlugInLink> link;
    DWORD lastTimeout = 0;
    bool stuck = false;
    long const fixtureHandles = HandlesLeftOpen();

    // Handles the link holds (those of the fixture's own reporter and event excluded).
    long HandlesLeft() const { return HandlesLeftOpen() - fixtureHandles; }
};

// --- the plug-in's pipe is already open ----------------------------------------------------

// The user's Acrobat runs with its plug-in: the job goes straight to it.
TEST_F(PlugInLinkTest, OpenPipeTakesTheJobWithoutALaunch)
{
    InstallAcrobat(0);
    plugIn->Start();
    Link(false);

    Send(u"C:\\In\\report.pdf");
    EXPECT_TRUE(RunUntilIdle());

    EXPECT_EQ(plugIn->Payloads(), std::vector<std::vector<BYTE>>{Payload(u"C:\\In\\report.pdf")});
    EXPECT_TRUE(Acrobats().empty());
    EXPECT_EQ(
        RenderedEvents(),
        std::vector<std::string>{"Connected to plug-in message pipe \\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk.\r\n"});
}

// A failure on a fresh connection is not retried: the job is lost, nothing is reported.
TEST_F(PlugInLinkTest, FailureOnAFreshConnectionIsNotRetried)
{
    InstallAcrobat(0);
    plugIn->Start();
    plugIn->Then(sim::ScriptedPipeServer::Break());
    Link(false);

    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());

    EXPECT_EQ(plugIn->Frames().size(), 1u);
    EXPECT_EQ(plugIn->Connections(), 1) << "no second connection";
    EXPECT_TRUE(Acrobats().empty());
    EXPECT_EQ(EventIds(), std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE});
}

// The broken pipe was kept; the next job fails on it and recovers through the retry.
TEST_F(PlugInLinkTest, NextJobAfterAnUnretriedFailureRecoversOverAFreshConnection)
{
    plugIn->Start();
    plugIn->Then(sim::ScriptedPipeServer::Break());
    Link(false);
    Send(u"C:\\In\\a.pdf");
    ASSERT_TRUE(RunUntilIdle());

    Send(u"C:\\In\\b.pdf");
    EXPECT_TRUE(RunUntilIdle());

    EXPECT_EQ(plugIn->Payloads(),
              (std::vector<std::vector<BYTE>>{Payload(u"C:\\In\\a.pdf"), Payload(u"C:\\In\\b.pdf")}));
    EXPECT_EQ(plugIn->Connections(), 2);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE, MSG_CONNECTED_TO_PLUGIN_PIPE}));
}

TEST_F(PlugInLinkTest, WriteThatCannotStartOnAFreshConnectionDropsTheJob)
{
    plugIn->Start();
    Link(false);
    world().faults.Fail("WriteFileEx", ERROR_NO_DATA);

    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_TRUE(plugIn->Frames().empty());
    EXPECT_EQ(EventIds(), std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE});
}

// --- reuse, and one retry over a reopened pipe or after a relaunch --------------------------

// Two jobs in a row are two whole messages on one connection, the second
// written only after the first one's reply.
TEST_F(PlugInLinkTest, LaterJobsReuseTheOpenPipe)
{
    plugIn->Start();
    Link(false);

    Send(u"C:\\In\\a.pdf");
    ASSERT_TRUE(RunUntilIdle());
    Send(u"C:\\In\\b.pdf");
    ASSERT_TRUE(RunUntilIdle());

    EXPECT_EQ(plugIn->Payloads(),
              (std::vector<std::vector<BYTE>>{Payload(u"C:\\In\\a.pdf"), Payload(u"C:\\In\\b.pdf")}));
    for (auto const& frame : plugIn->Frames()) {
        EXPECT_EQ(frame[0] | frame[1] << 8 | frame[2] << 16 | frame[3] << 24, static_cast<int>(frame.size() - 4));
    }
    EXPECT_EQ(plugIn->UnframedBytes(), 0u);
    EXPECT_EQ(plugIn->Connections(), 1);
    EXPECT_EQ(EventIds(), std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE});
}

// The plug-in breaks the pipe after reading a job: the same bytes go again over a reopened pipe.
TEST_F(PlugInLinkTest, FailedJobOnAReusedPipeIsSentOnceMoreOverAReopenedPipe)
{
    plugIn->Start();
    plugIn->Then(sim::ScriptedPipeServer::Reply(1));
    plugIn->Then(sim::ScriptedPipeServer::Break());
    Link(false);
    Send(u"C:\\In\\a.pdf");
    ASSERT_TRUE(RunUntilIdle());

    Send(u"C:\\In\\b.pdf");
    EXPECT_TRUE(RunUntilIdle());

    EXPECT_EQ(plugIn->Payloads(), (std::vector<std::vector<BYTE>>{Payload(u"C:\\In\\a.pdf"), Payload(u"C:\\In\\b.pdf"),
                                                                  Payload(u"C:\\In\\b.pdf")}));
    EXPECT_EQ(plugIn->Connections(), 2);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE, MSG_CONNECTED_TO_PLUGIN_PIPE}));
}

// A retry that fails as well is not retried again: the job is dropped.
TEST_F(PlugInLinkTest, TheRetryIsTheOnlyOne)
{
    plugIn->Start();
    plugIn->Then(sim::ScriptedPipeServer::Reply(1));
    plugIn->Then(sim::ScriptedPipeServer::Break());
    plugIn->Then(sim::ScriptedPipeServer::Break());
    Link(false);
    Send(u"C:\\In\\a.pdf");
    ASSERT_TRUE(RunUntilIdle());

    Send(u"C:\\In\\b.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(plugIn->Frames().size(), 3u);
    EXPECT_EQ(plugIn->Connections(), 2);
}

// Acrobat was closed between two jobs: the retry launches it again and sends the job once the pipe is there.
TEST_F(PlugInLinkTest, FailedJobOnAReusedPipeIsSentAfterARelaunch)
{
    InstallAcrobat(1500);
    Link(true);
    Send(u"C:\\In\\a.pdf");
    ASSERT_TRUE(RunUntilIdle());
    ASSERT_EQ(Acrobats().size(), 1u);
    Acrobats().front()->Exit(0);

    Send(u"C:\\In\\b.pdf");
    EXPECT_TRUE(RunUntilIdle());

    EXPECT_EQ(Acrobats().size(), 2u);
    EXPECT_EQ(plugIn->Payloads(),
              (std::vector<std::vector<BYTE>>{Payload(u"C:\\In\\a.pdf"), Payload(u"C:\\In\\b.pdf")}));
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE, MSG_CONNECTED_TO_PLUGIN_PIPE}));
}

// --- launching Acrobat and waiting for its plug-in ----------------------------------------------

// No pipe yet: Acrobat is launched, and the pipe is tried every 2000 ms until it opens.
TEST_F(PlugInLinkTest, LaunchedAcrobatGetsTheJobOnceItsPlugInServes)
{
    InstallAcrobat(5000);
    Link(false);
    DWORD const start = world().Ticks();

    Send(u"C:\\In\\a.pdf");
    ASSERT_EQ(Acrobats().size(), 1u);
    EXPECT_TRUE(RunUntilIdle());

    EXPECT_EQ(world().Ticks() - start, 6000u) << "the poll after the pipe appeared";
    EXPECT_EQ(plugIn->Payloads(), std::vector<std::vector<BYTE>>{Payload(u"C:\\In\\a.pdf")});
    EXPECT_EQ(EventIds(), std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE});
}

// Not as service, the watcher lets go of Acrobat once connected: the user goes on using it.
TEST_F(PlugInLinkTest, NotAsServiceTheProcessHandleIsGivenUpOnceConnected)
{
    InstallAcrobat(1000);
    Link(false);
    Send(u"C:\\In\\a.pdf");
    ASSERT_EQ(Acrobats().size(), 1u);
    EXPECT_EQ(Acrobats().front()->HandlesOpen(), 1) << "held while the plug-in is awaited";
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(Acrobats().front()->HandlesOpen(), 0);
}

TEST_F(PlugInLinkTest, AsServiceTheProcessHandleIsKept)
{
    InstallAcrobat(1000);
    Link(true);
    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    ASSERT_EQ(Acrobats().size(), 1u);
    EXPECT_EQ(Acrobats().front()->HandlesOpen(), 1);
}

// The plug-in never creates its pipe: message 21 at the first poll after
// 30000 ms, the handle dropped, Acrobat left running, the job lost.
class PlugInNeverAppears : public PlugInLinkTest, public ::testing::WithParamInterface<bool> {};

TEST_P(PlugInNeverAppears, GivesUpAtTheFirstPollAfter30Seconds)
{
    InstallAcrobatWithoutPlugIn();
    Link(GetParam());
    DWORD const start = world().Ticks();

    Send(u"C:\\In\\a.pdf");
    int busyTurns = 0;
    while (Turn()) {
        EXPECT_EQ(lastTimeout, kPlugInRetryInterval);
        EXPECT_TRUE(EventIds().empty()) << "nothing before the limit, at " << world().Ticks() - start;
        ++busyTurns;
    }

    EXPECT_EQ(world().Ticks() - start, 32000u);
    EXPECT_EQ(busyTurns, 16) << "polls at 0, 2000, ..., 30000";
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{"CreateFile(\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk) "
                                                         "failed.  Error code: 2\r\n"});
    EXPECT_EQ(world().eventLog.Records().front().type, EVENTLOG_ERROR_TYPE);
    ASSERT_EQ(Acrobats().size(), 1u);
    EXPECT_TRUE(Acrobats().front()->running) << "Acrobat is left running";
    EXPECT_EQ(Acrobats().front()->HandlesOpen(), 0);
}

// The next job launches Acrobat again.
TEST_P(PlugInNeverAppears, NextJobLaunchesAgain)
{
    InstallAcrobatWithoutPlugIn();
    Link(GetParam());
    Send(u"C:\\In\\a.pdf");
    ASSERT_TRUE(RunUntilIdle());

    Send(u"C:\\In\\b.pdf");
    EXPECT_EQ(Acrobats().size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(AsServiceOrNot, PlugInNeverAppears, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "AsService" : "NotAsService"; });

// The limit is measured in unsigned 32-bit ticks, across the counter's wrap.
TEST_F(PlugInLinkTest, TheLimitHoldsAcrossTheTickCountersWrap)
{
    world().SetTicks(0xFFFFFFFFu - 5000);
    InstallAcrobatWithoutPlugIn();
    Link(false);
    DWORD const start = world().Ticks();

    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(static_cast<DWORD>(world().Ticks() - start), 32000u);
    EXPECT_EQ(EventIds(), std::vector<DWORD>{MSG_CREATE_FILE_FAILED});
}

// The user closes the Acrobat just launched: message 31 at the next poll.
TEST_F(PlugInLinkTest, AcrobatExitingWhileAwaitedReports31)
{
    world().processes.children.AddImage(kAcrobatExe, [](auto const& process) { process->ExitAfter(3000, 1); });
    Link(true);
    DWORD const start = world().Ticks();

    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());

    EXPECT_EQ(world().Ticks() - start, 4000u);
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{
                                    "Acrobat.exe exited while waiting to connect to Hot Folder message window.\r\n"});
    EXPECT_EQ(Acrobats().front()->HandlesOpen(), 0);
}

// Once the limit has passed, message 21 is given even though Acrobat has exited.
TEST_F(PlugInLinkTest, TheTimeLimitIsCheckedBeforeAcrobatsExit)
{
    world().processes.children.AddImage(kAcrobatExe, [](auto const& process) { process->ExitAfter(31000, 0); });
    Link(false);
    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(EventIds(), std::vector<DWORD>{MSG_CREATE_FILE_FAILED});
}

TEST_F(PlugInLinkTest, FailedWaitOnAcrobatReports32)
{
    InstallAcrobatWithoutPlugIn();
    Link(false);
    Send(u"C:\\In\\a.pdf");
    world().faults.Fail("WaitForSingleObject", ERROR_ACCESS_DENIED);
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{"WaitForSingleObject() failed.  Error code: 5\r\n"});
    EXPECT_EQ(Acrobats().front()->HandlesOpen(), 0);
}

// The loop's stopped state may end Acrobat while its plug-in is awaited; the
// next poll then waits on no process at all.
TEST_F(PlugInLinkTest, AcrobatTerminatedWhileAwaitedGives32WithInvalidHandle)
{
    InstallAcrobatWithoutPlugIn();
    Link(true);
    Send(u"C:\\In\\a.pdf");
    link->TerminateAcrobat();
    EXPECT_TRUE(Acrobats().front()->terminated);

    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{"WaitForSingleObject() failed.  Error code: 6\r\n"});
}

TEST_F(PlugInLinkTest, FailedLaunchDropsTheJob)
{
    Link(false);
    Send(u"C:\\In\\a.pdf");
    EXPECT_FALSE(Turn()) << "the link is idle at once";
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{"CreateProcess(Acrobat.exe) failed.  Error code: 2\r\n"})
        << "the registry names Acrobat, but it is not installed";
    EXPECT_EQ(HandlesLeft(), 0);
}

// A slow plug-in keeps the link busy until its reply, however long.
TEST_F(PlugInLinkTest, SlowReplyKeepsTheLinkBusyUntilItComes)
{
    plugIn->Start();
    plugIn->Then(sim::ScriptedPipeServer::Reply(1, 120000));
    Link(false);
    DWORD const start = world().Ticks();
    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(world().Ticks() - start, 120000u);
    EXPECT_EQ(lastTimeout, INFINITE);
    EXPECT_EQ(plugIn->Frames().size(), 1u);
}

// A plug-in that never answers keeps the link busy for good.
TEST_F(PlugInLinkTest, PlugInThatNeverAnswersKeepsTheLinkBusy)
{
    plugIn->Start();
    plugIn->Then(sim::ScriptedPipeServer::NoReply());
    Link(false);
    Send(u"C:\\In\\a.pdf");
    EXPECT_FALSE(RunUntilIdle());
    EXPECT_EQ(lastTimeout, INFINITE);
}

// --- the plug-in's zero reply ------------------------------------------------------------------

// As service, a zero reply ends the Acrobat this watcher started; the next job starts it again.
TEST_F(PlugInLinkTest, AsServiceZeroReplyTerminatesAcrobatAndClosesThePipe)
{
    InstallAcrobat(1000);
    plugIn->Then(sim::ScriptedPipeServer::Reply(0));
    Link(true);
    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());

    ASSERT_EQ(Acrobats().size(), 1u);
    EXPECT_TRUE(Acrobats().front()->terminated);
    EXPECT_EQ(Acrobats().front()->exitCode, 0u);
    EXPECT_EQ(Acrobats().front()->HandlesOpen(), 0);
    EXPECT_EQ(HandlesLeft(), 0) << "the pipe is closed";

    Send(u"C:\\In\\b.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(Acrobats().size(), 2u);
    EXPECT_EQ(plugIn->Frames().size(), 2u);
}

// Not as service, a zero reply only closes the pipe: Acrobat stays, and the next job reconnects to it.
TEST_F(PlugInLinkTest, NotAsServiceZeroReplyOnlyClosesThePipe)
{
    InstallAcrobat(1000);
    plugIn->Then(sim::ScriptedPipeServer::Reply(0));
    Link(false);
    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    ASSERT_EQ(Acrobats().size(), 1u);
    EXPECT_TRUE(Acrobats().front()->running);
    EXPECT_EQ(HandlesLeft(), 0) << "the pipe is closed";

    Send(u"C:\\In\\b.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_EQ(Acrobats().size(), 1u);
    EXPECT_EQ(plugIn->Connections(), 2);
}

// As service, an Acrobat the watcher did not start is never terminated.
TEST_F(PlugInLinkTest, AsServiceZeroReplyLeavesAnAcrobatItDidNotStart)
{
    plugIn->Start();
    plugIn->Then(sim::ScriptedPipeServer::Reply(0));
    Link(true);
    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_TRUE(plugIn->Serving());
    EXPECT_EQ(HandlesLeft(), 0);
}

// As service, a job that fails without a retry ends the Acrobat this watcher started.
TEST_F(PlugInLinkTest, AsServiceAnUnretriedFailureTerminatesAcrobat)
{
    InstallAcrobat(1000);
    plugIn->Then(sim::ScriptedPipeServer::Break());
    Link(true);
    Send(u"C:\\In\\a.pdf");
    EXPECT_TRUE(RunUntilIdle());
    EXPECT_TRUE(Acrobats().front()->terminated);
    EXPECT_EQ(HandlesLeft(), 0);
}

// TerminateAcrobat does nothing not as service, and nothing without a process.
TEST_F(PlugInLinkTest, TerminateAcrobatOnlyEndsAnAcrobatHeldAsService)
{
    InstallAcrobatWithoutPlugIn();
    Link(false);
    Send(u"C:\\In\\a.pdf");
    link->TerminateAcrobat();
    EXPECT_TRUE(Acrobats().front()->running);

    Link(true);
    link->TerminateAcrobat();
    EXPECT_TRUE(EventIds().empty());
}

// --- a relaunch that fails ------------------------------------------------------------------

// The retry's relaunch fails: the link stays busy for the rest of the watcher's
// life and hands on no further job, even once the plug-in is back.
TEST_F(PlugInLinkTest, FailedRelaunchLeavesTheLinkBusyForGood)
{
    plugIn->Start();
    Link(false);
    Send(u"C:\\In\\a.pdf");
    ASSERT_TRUE(RunUntilIdle());
    plugIn->Stop();

    Send(u"C:\\In\\b.pdf");
    EXPECT_FALSE(RunUntilIdle());
    EXPECT_EQ(lastTimeout, INFINITE);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE, MSG_CREATE_PROCESS_ACROBAT_FAILED}))
        << "Acrobat is not installed, so the relaunch fails";

    plugIn->Start();
    world().Advance(60000);
    DWORD timeout = 0;
    EXPECT_TRUE(link->Poll(timeout));
    EXPECT_EQ(timeout, INFINITE);
    EXPECT_EQ(plugIn->Frames().size(), 1u);
}

}  // namespace
}  // namespace hf::test
