// The service's side of the control protocol against watcher pipes on the
// simulated machine: connecting, the 4-byte codes each watcher receives, and
// how failed links are reported and dropped.
#include "ListeningWatcher.h"
#include "SimTest.h"
#include "platform/Files.h"
#include "platform/Pipes.h"
#include "platform/Process.h"
#include "supervisor/Command.h"
#include "supervisor/WatcherLinks.h"

#include <memory>

namespace hf::test {
namespace {

constexpr char16_t kAlicePipe[] = u"\\\\.\\pipe\\Tarnwick_FolderWatcher_DOMAIN_alice";
constexpr char16_t kBobPipe[] = u"\\\\.\\pipe\\Tarnwick_FolderWatcher_DOMAIN_bob";

class WatcherLinksTest : public SimTest {
protected:
    // Delivers what the service wrote to the watchers' reads.
    void Deliver() { world().RunApcs(); }

    EventReporter events{kCategoryService};
    WatcherLinks links;
};

TEST_F(WatcherLinksTest, ConnectingWritesTheCodeLittleEndian)
{
    ListeningWatcher alice(kAlicePipe);
    ASSERT_TRUE(ConnectToWatcher(kAlicePipe, links, events, CMD_RUN));
    alice.Read();
    Deliver();
    EXPECT_EQ(alice.Received(), (std::vector<BYTE>{0x01, 0x80, 0x00, 0x00}));
    sim::EventRecord const connected = OnlyEvent(MSG_CONNECTED_TO_WATCHER_PIPE);
    EXPECT_EQ(connected.type, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(connected.category, kCategoryService);
    EXPECT_EQ(
        RenderedEvents().back(),
        "Connected to folder watcher process's message pipe \\\\.\\pipe\\Tarnwick_FolderWatcher_DOMAIN_alice.\r\n");
    EXPECT_EQ(CountLinks(links, kAlicePipe), 1u);
}

struct UnreachableWatcher {
    const char* name;
    bool listening;  // an instance exists but is taken
    DWORD error;
};

class UnreachableWatchers : public WatcherLinksTest, public ::testing::WithParamInterface<UnreachableWatcher> {};

TEST_P(UnreachableWatchers, AreReportedWithMessage51AndLeaveNoLink)
{
    std::unique_ptr<ListeningWatcher> busy;
    if (GetParam().listening) {
        busy = std::make_unique<ListeningWatcher>(kAlicePipe);
        HANDLE taken = os::CreateFileW(kAlicePipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(taken, INVALID_HANDLE_VALUE);
    }
    EXPECT_FALSE(ConnectToWatcher(kAlicePipe, links, events, CMD_RUN));
    EXPECT_TRUE(links.empty());
    EXPECT_EQ(OnlyEvent(MSG_CONNECT_TO_PIPE_FAILED).type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(RenderedEvents().back(),
              "Failed to connect to pipe \\\\.\\pipe\\Tarnwick_FolderWatcher_DOMAIN_alice.  "
              "Error code: " +
                  std::to_string(GetParam().error) + ".\r\n");
}

INSTANTIATE_TEST_SUITE_P(Cases, UnreachableWatchers,
                         ::testing::Values(UnreachableWatcher{"NoSuchPipe", false, ERROR_FILE_NOT_FOUND},
                                           UnreachableWatcher{"EveryInstanceBusy", true, ERROR_PIPE_BUSY}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(WatcherLinksTest, TwoLinksToOneWatcherCountAsOneNameAndBothReceiveEveryCode)
{
    ListeningWatcher first(kAlicePipe);
    ListeningWatcher second(kAlicePipe);
    std::u16string const otherCase = u"\\\\.\\PIPE\\tarnwick_folderwatcher_domain_ALICE";
    ASSERT_TRUE(ConnectToWatcher(kAlicePipe, links, events, CMD_RUN));
    ASSERT_TRUE(ConnectToWatcher(otherCase, links, events, CMD_RUN));
    EXPECT_EQ(CountLinks(links, kAlicePipe), 2u);
    EXPECT_EQ(CountLinks(links, otherCase), 2u);
    EXPECT_EQ(CountLinks(links, kBobPipe), 0u);
    EXPECT_EQ(U8(std::next(links.begin())->first), U8(otherCase)) << "a later link of an equal name goes last";

    first.Read();
    second.Read();
    BroadcastCommand(CMD_PAUSE, links, events);
    Deliver();
    std::vector<BYTE> expected = CodeBytes(CMD_RUN);
    auto const pause = CodeBytes(CMD_PAUSE);
    expected.insert(expected.end(), pause.begin(), pause.end());
    EXPECT_EQ(first.Received(), expected);
    EXPECT_EQ(second.Received(), expected);
}

TEST_F(WatcherLinksTest, ABroadcastOverNoLinksDoesNothing)
{
    BroadcastCommand(CMD_STOP, links, events);
    EXPECT_TRUE(world().eventLog.Records().empty());
}

TEST_F(WatcherLinksTest, AWatcherThatExitedIsReportedOnceAndDroppedWhileTheOthersGetTheCode)
{
    ListeningWatcher alice(kAlicePipe);
    ListeningWatcher bob(kBobPipe);
    ASSERT_TRUE(ConnectToWatcher(kAlicePipe, links, events, CMD_RUN));
    ASSERT_TRUE(ConnectToWatcher(kBobPipe, links, events, CMD_RUN));
    alice.Exit();
    bob.Read();

    BroadcastCommand(CMD_PAUSE, links, events);
    BroadcastCommand(CMD_RUN, links, events);
    Deliver();
    EXPECT_EQ(world().eventLog.WithId(MSG_WRITE_PIPE_FAILED).size(), 1u);
    EXPECT_EQ(OnlyEvent(MSG_WRITE_PIPE_FAILED).strings.front(), kAlicePipe);
    EXPECT_EQ(CountLinks(links, kAlicePipe), 0u);
    EXPECT_EQ(bob.Received().size(), 12u) << "run, pause, run";
    EXPECT_EQ(HandlesLeftOpen(), 3) << "bob's two ends and the reporter's event source";
}

TEST_F(WatcherLinksTest, ALinkWhoseFirstWriteFailsIsClosedAndDropped)
{
    ListeningWatcher alice(kAlicePipe);
    world().faults.Fail("WriteFile", ERROR_NO_DATA);
    long const before = HandlesLeftOpen();
    EXPECT_FALSE(ConnectToWatcher(kAlicePipe, links, events, CMD_RUN));
    EXPECT_TRUE(links.empty());
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_CONNECTED_TO_WATCHER_PIPE, MSG_WRITE_PIPE_FAILED}));
    EXPECT_EQ(RenderedEvents().back(),
              "WritePipe(\\\\.\\pipe\\Tarnwick_FolderWatcher_DOMAIN_alice) failed.  Error code: 232\r\n");
    EXPECT_EQ(HandlesLeftOpen(), before) << "the client end was closed";
}

}  // namespace
}  // namespace hf::test
