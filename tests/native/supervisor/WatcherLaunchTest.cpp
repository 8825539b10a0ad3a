// Launching a user's watcher on the simulated machine: how the stored name is
// split for the logon, which failures are reported how and what is cleaned up
// after each, which users are skipped, and the process a launch creates. In
// every case the password is left in no memory the service holds or gave back.
#include "ListeningWatcher.h"
#include "SimTest.h"
#include "platform/sim/SimMemory.h"
#include "supervisor/Command.h"
#include "supervisor/UserStore.h"
#include "supervisor/WatcherLaunch.h"

#include <algorithm>

namespace hf::test {
namespace {

constexpr char16_t kServiceAccount[] = u"NT AUTHORITY\\SYSTEM";
constexpr char16_t kPassword[] = u"s3cret";

class WatcherLaunchTest : public SimTest {
protected:
    WatcherLaunchTest()
    {
        world().processes.current.userName = kServiceAccount;
        world().processes.children.AddImage(world().processes.current.modulePath);
        world().accounts.Add({u"OFFICE", u"alice", kPassword, u"\\\\files\\profiles\\alice"});
    }

    // Installs `user` with the password, sealed by `sealer` (the service when null).
    void Install(std::u16string const& user, std::u16string const& password, const char16_t* sealer = nullptr)
    {
        world().processes.current.userName = sealer ? sealer : kServiceAccount;
        EXPECT_EQ(store.Install(user, password), 0);
        world().processes.current.userName = kServiceAccount;
    }

    // Whether any block of the process heap that the system handed out, held
    // or given back, holds the text.
    static bool AnyBlockHolds(std::u16string const& text)
    {
        auto const* bytes = reinterpret_cast<BYTE const*>(text.data());
        auto blocks = sim::ReleasedBlocks();
        auto const held = sim::HeldBlocks();
        blocks.insert(blocks.end(), held.begin(), held.end());
        return std::any_of(blocks.begin(), blocks.end(), [&](auto const& block) {
            return std::search(block.begin(), block.end(), bytes, bytes + text.size() * 2) != block.end();
        });
    }

    UserStore const store = UserStore::Open();
    EventReporter events{kCategoryService};
    WatcherLinks links;
};

struct LaunchCase {
    const char* name;
    const char16_t* user;
    std::vector<DWORD> reports;
    const char* lastText;
    // How the case differs from a plain launch of `user`.
    const char* failingCall = nullptr;
    DWORD error = 0;
    const char16_t* sealer = nullptr;    // another account sealed the password
    bool tampered = false;               // a byte of the stored blob changed
    const char16_t* linkedAs = nullptr;  // a link to this pipe exists already

    LaunchCase Failing(const char* call, DWORD code) const
    {
        LaunchCase row = *this;
        row.failingCall = call;
        row.error = code;
        return row;
    }
    template <typename Field>
    LaunchCase With(Field LaunchCase::*field, Field value) const
    {
        LaunchCase row = *this;
        row.*field = value;
        return row;
    }
};

class LaunchTable : public WatcherLaunchTest, public ::testing::WithParamInterface<LaunchCase> {};

TEST_P(LaunchTable, ReportsAndCleansUpAsEachFailureRequires)
{
    LaunchCase const& row = GetParam();
    Install(row.user, kPassword, row.sealer);
    if (row.tampered) {
        auto value = world().registry.Value(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, row.user);
        value->data.back() ^= 0x01;
        world().registry.SetRaw(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, row.user, REG_BINARY, value->data);
    }
    std::unique_ptr<ListeningWatcher> running;
    if (row.linkedAs) {
        running = std::make_unique<ListeningWatcher>(row.linkedAs);
        ASSERT_TRUE(ConnectToWatcher(row.linkedAs, links, events, CMD_RUN));
    }
    if (row.failingCall) {
        world().faults.Fail(row.failingCall, row.error);
    }
    std::size_t const reportedBefore = EventIds().size();
    long const handlesBefore = HandlesLeftOpen();

    LaunchWatchers({row.user}, store.key(), links, events);

    std::vector<DWORD> const ids = EventIds();
    EXPECT_EQ(std::vector<DWORD>(ids.begin() + static_cast<std::ptrdiff_t>(reportedBefore), ids.end()), row.reports);
    if (!row.reports.empty()) {
        EXPECT_EQ(RenderedEvents().back(), row.lastText);
        EXPECT_EQ(world().eventLog.Records().back().type,
                  row.reports.back() == MSG_LAUNCHING_WATCHER ? EVENTLOG_INFORMATION_TYPE : EVENTLOG_ERROR_TYPE);
    }
    bool const launched =
        std::find(row.reports.begin(), row.reports.end(), MSG_LAUNCHING_WATCHER) != row.reports.end() &&
        row.reports.back() == MSG_LAUNCHING_WATCHER;
    EXPECT_EQ(world().processes.children.Started().size(), launched ? 1u : 0u);
    EXPECT_EQ(HandlesLeftOpen(), handlesBefore) << "token, profile and process handles closed";
    for (auto const& profile : world().accounts.profiles) {
        EXPECT_TRUE(profile.unloaded);
    }
    EXPECT_FALSE(AnyBlockHolds(kPassword)) << "the password and the opened blob are wiped";
}

constexpr char16_t kAlice[] = u"OFFICE\\alice";

INSTANTIATE_TEST_SUITE_P(
    Cases, LaunchTable,
    ::testing::Values(
        LaunchCase{"EmptyDomain",
                   u"\\alice",
                   {MSG_LOGON_FAILED},
                   "Attempt to logon as user alice on domain  failed.  Error code: 1326\r\n"},
        LaunchCase{"EmptyName",
                   u"OFFICE\\",
                   {MSG_LOGON_FAILED},
                   "Attempt to logon as user  on domain OFFICE failed.  Error code: 1326\r\n"},
        LaunchCase{"SecondBackslashStaysInTheName",
                   u"A\\B\\C",
                   {MSG_LOGON_FAILED},
                   "Attempt to logon as user B\\C on domain A failed.  Error code: 1326\r\n"},
        LaunchCase{"SecondBackslashBecomesAnUnderscoreInThePipe", u"A\\B\\C", {}, ""}.With(
            &LaunchCase::linkedAs, u"\\\\.\\pipe\\Tarnwick_FolderWatcher_A_B_C"),
        LaunchCase{
            "NoBackslash", u"alice", {MSG_NO_SLASH_IN_USER}, "Found no slash in user name alice.  Cannot logon.\r\n"},
        LaunchCase{"LogonRefused",
                   kAlice,
                   {MSG_LOGON_FAILED},
                   "Attempt to logon as user alice on domain OFFICE failed.  Error code: 1326\r\n"}
            .Failing("LogonUserW", ERROR_LOGON_FAILURE),
        LaunchCase{"ProfileRefused",
                   kAlice,
                   {MSG_LOAD_USER_PROFILE_FAILED},
                   "LoadUserProfile(alice) failed.  Error code: 5\r\n"}
            .Failing("LoadUserProfileW", ERROR_ACCESS_DENIED),
        LaunchCase{"CreationRefused",
                   kAlice,
                   {MSG_LAUNCHING_WATCHER, MSG_CREATE_PROCESS_AS_USER_FAILED},
                   "CreateProcessAsUser(OFFICE\\alice, TarnwickHotFolder.exe -asservice) failed.  Error code: 1314\r\n"}
            .Failing("CreateProcessAsUserW", ERROR_PRIVILEGE_NOT_HELD),
        LaunchCase{"NoAccountRecordStillLaunches",
                   kAlice,
                   {MSG_LAUNCHING_WATCHER},
                   "Launching C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe for user OFFICE\\alice with "
                   "commandline:\r\nTarnwickHotFolder.exe -asservice\r\n"}
            .Failing("NetUserGetInfo", ERROR_BAD_NETPATH),
        LaunchCase{"SealedByAnotherAccount",
                   kAlice,
                   {MSG_DECRYPT_PASSWORD_FAILED},
                   "Error decrypting password for user OFFICE\\alice.  Error code: -2146893813\r\n"}
            .With(&LaunchCase::sealer, u"OFFICE\\clerk"),
        LaunchCase{"TamperedBlob",
                   kAlice,
                   {MSG_DECRYPT_PASSWORD_FAILED},
                   "Error decrypting password for user OFFICE\\alice.  Error code: 13\r\n"}
            .With(&LaunchCase::tampered, true),
        LaunchCase{"AlreadyLinkedUnderOtherLetterCase", kAlice, {}, ""}.With(
            &LaunchCase::linkedAs, u"\\\\.\\PIPE\\tarnwick_folderwatcher_office_ALICE")),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(WatcherLaunchTest, ALaunchedWatcherRunsAsItsUserWithItsProfileAndTheServiceLetsGoOfIt)
{
    Install(u"OFFICE\\alice", kPassword);
    long const handlesBefore = HandlesLeftOpen();
    LaunchWatchers({u"OFFICE\\alice"}, store.key(), links, events);

    EXPECT_EQ(EventIds(), std::vector<DWORD>{MSG_LAUNCHING_WATCHER});
    auto const& started = world().processes.children.Started();
    ASSERT_EQ(started.size(), 1u);
    sim::ChildProcess const& watcher = *started.front();
    EXPECT_EQ(U8(watcher.userName), "OFFICE\\alice");
    EXPECT_EQ(U8(watcher.applicationName), "C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe");
    EXPECT_EQ(U8(watcher.commandLine), "TarnwickHotFolder.exe -asservice");
    EXPECT_EQ(U8(watcher.currentDirectory), "C:\\Program Files\\Tarnwick");
    EXPECT_EQ(watcher.desktop, std::u16string()) << "an empty desktop name, not none";
    EXPECT_EQ(watcher.startupInfoSize, 68u);
    EXPECT_EQ(watcher.HandlesOpen(), 0) << "both handles closed at once";
    EXPECT_TRUE(watcher.running);

    ASSERT_EQ(world().accounts.profiles.size(), 1u);
    sim::LoadedProfile const& profile = world().accounts.profiles.front();
    EXPECT_EQ(U8(profile.userName), "alice");
    EXPECT_EQ(profile.profilePath, u"\\\\files\\profiles\\alice") << "from the account record";
    EXPECT_TRUE(profile.unloaded);
    EXPECT_EQ(HandlesLeftOpen(), handlesBefore) << "token and profile gone while the watcher runs";
    EXPECT_FALSE(AnyBlockHolds(kPassword));
}

}  // namespace
}  // namespace hf::test
