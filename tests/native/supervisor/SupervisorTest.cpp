// The supervisor: its installed-user store, watcher launches, links to watchers' control pipes, and its thread.
#include "SimTest.h"
#include "acrobat/PipeNames.h"
#include "platform/Files.h"
#include "platform/Pipes.h"
#include "platform/sim/SimMemory.h"
#include "supervisor/SupervisorThread.h"
#include "supervisor/UserStore.h"
#include "supervisor/WatcherLaunch.h"
#include "watcher/ControlPipe.h"

#include <algorithm>
#include <memory>

namespace hf::test {
namespace {

// A watcher's control pipe as the service sees it: one listening instance that keeps what a client writes.
class ListeningWatcher {
public:
    explicit ListeningWatcher(std::u16string const& name)
        : pipe_(os::CreateNamedPipeW(name.c_str(), 0x40000003, 0, 255, 10240, 10240, 30000, nullptr))
    {
        os::ConnectNamedPipe(pipe_, &connect_);
    }
    ListeningWatcher(const ListeningWatcher&) = delete;
    ListeningWatcher& operator=(const ListeningWatcher&) = delete;

    // Reads once a client is there; what arrives counts when the reads complete (in an alertable wait or RunApcs).
    void Read()
    {
        read_.hEvent = this;  // reads leave it to the caller
        os::ReadFileEx(pipe_, buffer_, sizeof buffer_, &read_, [](DWORD error, DWORD bytes, OVERLAPPED* read) {
            auto& watcher = *static_cast<ListeningWatcher*>(read->hEvent);
            watcher.broken_ = error != 0;  // the client's end closed, say
            if (!watcher.broken_) {
                watcher.codes_.insert(watcher.codes_.end(), watcher.buffer_, watcher.buffer_ + bytes / 4);
                watcher.Read();
            }
        });
    }
    void Exit() { os::CloseHandle(pipe_); }  // the watcher process goes away
    bool Broken() const { return broken_; }
    // What arrived, as 4-byte codes in the machine's order, which is the wire's (little-endian).
    std::vector<DWORD> const& Codes() const { return codes_; }

private:
    HANDLE pipe_;
    OVERLAPPED connect_{};
    OVERLAPPED read_{};
    DWORD buffer_[16]{};
    std::vector<DWORD> codes_;
    bool broken_ = false;
};

constexpr char16_t kAlice[] = u"OFFICE\\alice";
constexpr char16_t kPassword[] = u"s3cret";

std::u16string WatcherPipe(std::u16string const& user)
{
    return MakePipeName(kWatcherPipePrefix, user);
}

class SupervisorTest : public SimTest {
protected:
    SupervisorTest()
    {
        world().processes.current.userName = u"NT AUTHORITY\\SYSTEM";
        for (auto const* name : {u"alice", u"bob", u"carol"}) {
            world().accounts.Add({u"OFFICE", name, kPassword, u"\\\\files\\profiles\\" + std::u16string(name)});
        }
        world().accounts.onUnload = [] { EXPECT_FALSE(AnyBlockHoldsThePassword()) << "wiped before the unload"; };
        // A launched watcher opens its control pipe under its user's name.
        world().processes.children.AddImage(world().processes.current.modulePath, [this](auto const& process) {
            launched.push_back(std::make_unique<ListeningWatcher>(WatcherPipe(process->userName)));
        });
    }
    // Installs `user`, the password sealed by `sealer` (the service when null).
    void Install(std::u16string const& user, std::u16string const& password = kPassword, const char16_t* sealer = {})
    {
        std::u16string const service = world().processes.current.userName;
        world().processes.current.userName = sealer ? sealer : service;
        EXPECT_EQ(UserStore::Open().Install(user, password), 0);
        world().processes.current.userName = service;
    }
    void Post(DWORD code, std::u16string argument = {}) { TheCommandQueue().Post(Command{code, std::move(argument)}); }
    // Whether any block the system handed out, held or given back, holds the password.
    static bool AnyBlockHoldsThePassword()
    {
        auto blocks = sim::ReleasedBlocks(), held = sim::HeldBlocks();
        blocks.insert(blocks.end(), held.begin(), held.end());
        auto const* bytes = reinterpret_cast<BYTE const*>(kPassword);
        return std::any_of(blocks.begin(), blocks.end(), [&](auto const& b) {
            return std::search(b.begin(), b.end(), bytes, bytes + sizeof kPassword - 2) != b.end();
        });
    }

    EventReporter events{kCategoryService};
    WatcherLinks links;
    std::vector<std::unique_ptr<ListeningWatcher>> launched;
};

// What the listing finds and reports, and what testing one entry answers.
TEST_F(SupervisorTest, TheStoreListsAndTestsEntries)
{
    std::u16string const longName = u"OFFICE\\" + std::u16string(150, u'n');
    // The value written ("-": none), its type (REG_BINARY of size 0: installed) and size, a failing call, its error,
    // what testing it answers, the report and its type.
    // clang-format off
    struct Row { std::u16string name; DWORD type; std::size_t size; const char* failingCall; DWORD error; LONG result; bool installed; DWORD report; WORD reportType; };
    Row const rows[] = {
        {u"-", 0, 0, "", 0, 0, false, MSG_NO_USERS, EVENTLOG_INFORMATION_TYPE},
        {longName, REG_BINARY, 0, "", 0, 0, true, MSG_FOUND_INSTALLED_USER, EVENTLOG_SUCCESS},
        {kAlice, REG_BINARY, 257, "", 0, ERROR_MORE_DATA, false, MSG_FOUND_INSTALLED_USER, EVENTLOG_SUCCESS},
        {kAlice, REG_SZ, 16, "", 0, ERROR_INVALID_DATA, false, MSG_FOUND_INSTALLED_USER, EVENTLOG_SUCCESS},
        {u"", REG_BINARY, 8, "", 0, 0, true, MSG_FOUND_INSTALLED_USER, EVENTLOG_SUCCESS},
        {kAlice, REG_BINARY, 0, "RegQueryValueExW", ERROR_PATH_NOT_FOUND, 0, false, MSG_FOUND_INSTALLED_USER, EVENTLOG_SUCCESS},
        // The listing then fails on the null key, at index 0.
        {u"-", 0, 0, "RegCreateKeyExW", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, false, MSG_ENUM_USER_ERROR, EVENTLOG_ERROR_TYPE},
    };
    // clang-format on
    for (auto const& row : rows) {
        SCOPED_TRACE(U8(row.name) + " " + std::to_string(row.result));
        world().registry.Clear();
        world().eventLog.Clear();
        if (row.type == REG_BINARY && row.size == 0) {
            Install(row.name);
        } else if (row.type != 0) {
            world().registry.SetRaw(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, row.name, row.type,
                                    std::vector<BYTE>(row.size, 0x5A));
        }
        world().faults.Fail(row.failingCall, row.error);  // "" fails nothing
        UserStore const store = UserStore::Open();
        std::vector<std::u16string> users;
        EnumerateUsers(store.key(), events, users);
        EXPECT_EQ(std::pair(EventIds(), world().eventLog.Records().at(0).type),
                  std::pair(std::vector{row.report}, row.reportType));
        EXPECT_EQ(users, row.type ? std::vector{row.name} : std::vector<std::u16string>{});
        bool installed = !row.installed;
        EXPECT_EQ((std::pair{store.IsInstalled(row.name, installed), installed}), std::pair(row.result, row.installed));
    }
}

// How the stored name is split for the logon, which failures are reported how, which users are skipped; after every row
// the token, the profile and the process handles are closed and the password is left in no memory.
TEST_F(SupervisorTest, ALaunchReportsAndCleansUpAsEachFailureRequires)
{
    char const kLaunching[] =
        "Launching C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe for user OFFICE\\alice with "
        "commandline:\r\nTarnwickHotFolder.exe -asservice\r\n";
    // The user, the reports and the last one's text, a failing call and its error, another account that sealed the
    // password, the profile path of a launch.
    // clang-format off
    struct Row { const char16_t* user; std::vector<DWORD> reports; std::string lastText; const char* failingCall = ""; DWORD error = 0; const char16_t* sealer = nullptr; const char16_t* profile = nullptr; };
    Row const rows[] = {
        {u"\\alice", {MSG_LOGON_FAILED}, "Attempt to logon as user alice on domain  failed.  Error code: 1326\r\n"},
        {u"OFFICE\\", {MSG_LOGON_FAILED}, "Attempt to logon as user  on domain OFFICE failed.  Error code: 1326\r\n"},
        {u"A\\B\\C", {MSG_LOGON_FAILED}, "Attempt to logon as user B\\C on domain A failed.  Error code: 1326\r\n"},
        {u"alice", {MSG_NO_SLASH_IN_USER}, "Found no slash in user name alice.  Cannot logon.\r\n"},
        {kAlice, {MSG_LOAD_USER_PROFILE_FAILED}, "LoadUserProfile(alice) failed.  Error code: 5\r\n", "LoadUserProfileW", ERROR_ACCESS_DENIED},
        {kAlice, {MSG_LAUNCHING_WATCHER, MSG_CREATE_PROCESS_AS_USER_FAILED}, "CreateProcessAsUser(OFFICE\\alice, TarnwickHotFolder.exe -asservice) failed.  Error code: 1314\r\n", "CreateProcessAsUserW", ERROR_PRIVILEGE_NOT_HELD},
        {kAlice, {MSG_DECRYPT_PASSWORD_FAILED}, "Error decrypting password for user OFFICE\\alice.  Error code: -2146893813\r\n", "", 0, u"OFFICE\\clerk"},
        {kAlice, {MSG_LAUNCHING_WATCHER}, kLaunching, "", 0, nullptr, u"\\\\files\\profiles\\alice"},
        {kAlice, {MSG_LAUNCHING_WATCHER}, kLaunching, "NetUserGetInfo", ERROR_BAD_NETPATH, nullptr, u"(none)"},
    };
    // clang-format on
    for (auto const& row : rows) {
        SCOPED_TRACE(row.lastText + row.failingCall);
        world().registry.Clear();
        Install(row.user, u"replaced");  // the second install's password counts
        Install(row.user, kPassword, row.sealer);
        world().registry.SetString(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, u"OFFICE\\carol", u"not a sealed password");
        world().eventLog.Clear();
        world().faults.Fail(row.failingCall, row.error);  // "" fails nothing
        long const handlesBefore = HandlesLeftOpen();
        auto const& started = world().processes.children.Started();
        std::size_t const startedBefore = started.size();
        // bob is not installed; carol's entry cannot be read as a sealed password: both are skipped without a word.
        LaunchWatchers({row.user, u"OFFICE\\bob", u"OFFICE\\carol"}, UserStore::Open().key(), links, events);

        ASSERT_EQ(EventIds(), row.reports);
        EXPECT_EQ(std::to_string(world().eventLog.Records().back().type) + RenderedEvents().back(),
                  std::to_string(row.profile ? EVENTLOG_INFORMATION_TYPE : EVENTLOG_ERROR_TYPE) + row.lastText);
        // A launched watcher holds its control pipe open; the service keeps no handle on it.
        std::size_t const launches = row.profile ? 1 : 0;
        EXPECT_EQ(std::pair(started.size(), HandlesLeftOpen()),
                  std::pair(startedBefore + launches, handlesBefore + static_cast<long>(launches)));
        auto const& profiles = world().accounts.profiles;
        EXPECT_TRUE(std::all_of(profiles.begin(), profiles.end(), [](auto const& p) { return p.unloaded; }));
        EXPECT_FALSE(AnyBlockHoldsThePassword()) << "the password and the opened blob are wiped";
        if (row.profile) {
            ASSERT_FALSE(started.empty() || profiles.empty());
            sim::ChildProcess const& w = *started.back();
            // STARTUPINFOW's size is the one it has always been declared with.
            EXPECT_EQ(
                U8(w.userName + u"|" + w.applicationName + u"|" + w.commandLine + u"|" + w.currentDirectory + u"|" +
                   w.desktop.value_or(u"(none)") + u"|" + profiles.back().userName + u"|" +
                   profiles.back().profilePath.value_or(u"(none)")) +
                    "|" + std::to_string(w.startupInfoSize),
                "OFFICE\\alice|C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe|TarnwickHotFolder.exe -asservice|"
                "C:\\Program Files\\Tarnwick||alice|" +
                    U8(row.profile) + "|68");
        }
    }
}

// A watcher that cannot be reached (no pipe, every instance busy), or whose first write fails, is reported and leaves
// no link and no handle.
TEST_F(SupervisorTest, AWatcherThatCannotBeReachedIsReportedAndLeftUnlinked)
{
    ListeningWatcher alice(WatcherPipe(kAlice)), bob(WatcherPipe(u"OFFICE\\bob"));
    ASSERT_NE(os::CreateFileW(WatcherPipe(u"OFFICE\\bob").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    long const before = HandlesLeftOpen();
    world().faults.Fail("WriteFile", ERROR_NO_DATA);
    for (auto const* user : {u"OFFICE\\carol", u"OFFICE\\bob", kAlice}) {
        EXPECT_FALSE(ConnectToWatcher(WatcherPipe(user), links, events, CMD_RUN));
    }
    EXPECT_TRUE(links.empty() && HandlesLeftOpen() == before);
    EXPECT_EQ(
        RenderedEvents(),
        (std::vector<std::string>{
            "Failed to connect to pipe \\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_carol.  Error code: 2.\r\n",
            "Failed to connect to pipe \\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_bob.  Error code: 231.\r\n",
            "Connected to folder watcher process's message pipe \\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_alice.\r\n",
            "WritePipe(\\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_alice) failed.  Error code: 232\r\n"}));
    for (auto const& record : world().eventLog.Records()) {  // only the connection is news
        EXPECT_EQ(record.type,
                  record.eventId == MSG_CONNECTED_TO_WATCHER_PIPE ? EVENTLOG_INFORMATION_TYPE : EVENTLOG_ERROR_TYPE);
    }
}

// At start, running watchers are linked and told to run and every other installed user is launched; only then are the
// commands posted meanwhile taken, in order. An announced watcher gets the current command, an unknown code is taken
// without a word, an exited watcher is reported once and dropped, and the links stay open after the stop.
TEST_F(SupervisorTest, WatchersAreLinkedAtStartAndGetEveryCommand)
{
    Install(kAlice);
    Install(u"OFFICE\\bob");
    Install(u"OFFICE\\carol");
    // alice's watcher, linked under other letter case, is not launched again.
    ListeningWatcher alice(u"\\\\.\\pipe\\Tarnwick_FolderWatcher_office_ALICE"), erin(WatcherPipe(u"OFFICE\\erin"));
    // Found by the listing but not taken for a watcher: the prefix test is exact.
    ListeningWatcher carol(u"\\\\.\\pipe\\TARNWICK_FOLDERWATCHER_OFFICE_carol");
    ListeningWatcher other(u"\\\\.\\pipe\\Tarnwick_FolderWatcher-OFFICE_carol");
    Post(CMD_CONNECT, WatcherPipe(u"OFFICE\\bob"));  // bob's watcher, once launched, announces itself
    Post(CMD_PAUSE);
    world().After(10, [&] {
        erin.Exit();
        launched.push_back(std::make_unique<ListeningWatcher>(WatcherPipe(u"OFFICE\\dave")));
        Post(CMD_CONNECT, WatcherPipe(u"OFFICE\\dave"));
        Post(0x4711);
        Post(CMD_RUN);
    });
    world().After(20, [&] {
        Post(CMD_PAUSE);
        Post(CMD_STOP);
    });

    EXPECT_EQ(SupervisorThread(nullptr), 0u);
    for (ListeningWatcher* watcher : {&alice, &carol, &other, launched.at(0).get(), launched.at(2).get()}) {
        watcher->Read();
    }
    world().RunApcs();
    EXPECT_EQ(EventIds(),
              (std::vector<DWORD>{MSG_CONNECTED_TO_WATCHER_PIPE, MSG_CONNECTED_TO_WATCHER_PIPE,
                                  MSG_FOUND_INSTALLED_USER, MSG_FOUND_INSTALLED_USER, MSG_FOUND_INSTALLED_USER,
                                  MSG_LAUNCHING_WATCHER, MSG_LAUNCHING_WATCHER, MSG_CONNECTED_TO_WATCHER_PIPE,
                                  MSG_CONNECTED_TO_WATCHER_PIPE, MSG_WRITE_PIPE_FAILED}));
    auto const& started = world().processes.children.Started();
    EXPECT_EQ(U8(started.at(0)->userName + u" " + started.at(1)->userName) + std::to_string(started.size()),
              "OFFICE\\bob OFFICE\\carol2");
    EXPECT_EQ(alice.Codes(), (std::vector<DWORD>{CMD_RUN, CMD_PAUSE, CMD_RUN, CMD_PAUSE, CMD_STOP}));
    EXPECT_EQ(launched.at(0)->Codes(), (std::vector<DWORD>{CMD_RUN, CMD_PAUSE, CMD_RUN, CMD_PAUSE, CMD_STOP})) << "bob";
    EXPECT_EQ(launched.at(2)->Codes(), (std::vector<DWORD>{CMD_PAUSE, CMD_RUN, CMD_PAUSE, CMD_STOP})) << "dave";
    EXPECT_TRUE(carol.Codes().empty() && other.Codes().empty());
    EXPECT_FALSE(alice.Broken()) << "the link stays open until the service process ends";
    EXPECT_EQ(world().eventLog.openSources, 1) << "only the test's own reporter";
}

// With nothing left that could ever wake it, the supervisor's wait fails: reported, it ends the thread.
TEST_F(SupervisorTest, AFailedWaitEndsTheThread)
{
    EXPECT_EQ(SupervisorThread(nullptr), 0u);
    EXPECT_EQ(RenderedEvents().back(), "WaitForMultipleObjects failed.  Error code: 6\r\n");
}

}  // namespace
}  // namespace hf::test
