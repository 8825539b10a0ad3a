// Whole-watcher stories: the real RunWatcher on the simulated machine, with a
// hot folder tree, Acrobat whose plug-in answers every job, and (when a story
// has one) a service that connects back when the watcher announces itself and
// switches it over the control pipe. Each story is scripted on the virtual
// clock; the watcher runs until the script is exhausted and its wait fails.
#include "SimTest.h"
#include "acrobat/AcrobatLauncher.h"
#include "acrobat/JobMessage.h"
#include "platform/Com.h"
#include "platform/sim/SimPipePeers.h"
#include "supervisor/Command.h"
#include "supervisor/WatcherLinks.h"
#include "watcher/RunWatcher.h"

#include <cstring>
#include <optional>

namespace hf::test {
namespace {

using Texts = std::vector<std::string>;
constexpr char16_t kAcrobatExe[] = u"C:\\Program Files\\Adobe\\Acrobat\\Acrobat.exe";
constexpr char16_t kWatcherPipe[] = u"\\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_clerk";
constexpr char16_t kRoot[] = u"C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders";
std::string const kWatcherPipe8 = U8(kWatcherPipe);

// The service as the watcher sees it: a FolderService whose ConnectWatcher
// makes the service connect back and write its current command, through the
// service's own protocol code, as the supervisor does.
class FakeFolderService : public os::IFolderService {
public:
    HRESULT QueryInterface(os::GUID const&, void** object) override
    {
        *object = this;
        AddRef();
        return S_OK;
    }
    std::uint32_t AddRef() override { return ++references; }
    std::uint32_t Release() override { return --references; }
    HRESULT GetTypeInfoCount(unsigned*) override { return E_NOTIMPL; }
    HRESULT GetTypeInfo(unsigned, DWORD, void**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(os::GUID const&, WCHAR**, unsigned, DWORD, LONG*) override { return E_NOTIMPL; }
    HRESULT Invoke(LONG, os::GUID const&, DWORD, WORD, void*, void*, void*, unsigned*) override { return E_NOTIMPL; }
    HRESULT IsUserInstalled(os::BSTR, os::VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT InstallUser(os::BSTR, os::BSTR) override { return E_NOTIMPL; }
    HRESULT UninstallUser(os::BSTR) override { return E_NOTIMPL; }
    HRESULT ConnectWatcher(os::BSTR pipeName) override
    {
        announced.push_back(pipeName);
        sim::TheWorld().After(
            0, [this, name = announced.back()] { ConnectToWatcher(name, links, events, currentCommand); });
        return S_OK;
    }

    // The service relays a command to every watcher it is linked to.
    void Broadcast(DWORD code)
    {
        currentCommand = code == CMD_STOP ? currentCommand : code;
        BroadcastCommand(code, links, events);
    }
    // The service process ends: its pipe ends close.
    void Exit()
    {
        for (auto const& link : links) {
            os::CloseHandle(link.second.pipe);
        }
        links.clear();
    }

    EventReporter events{kCategoryService};
    WatcherLinks links;
    DWORD currentCommand = CMD_RUN;
    std::vector<std::u16string> announced;
    std::uint32_t references = 0;
};

class WatcherLoopTest : public SimTest {
protected:
    WatcherLoopTest()
    {
        world().registry.SetString(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", kAcrobatExe);
        plugIn = sim::ScriptedPipeServer::Create(u"\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk");
        world().processes.children.AddImage(kAcrobatExe, [server = plugIn](auto const& p) { server->RunInside(p, 0); });
        world().files.MakeDirectory(u"C:\\In");
        HotFolder(u"Invoices", "C:\\In");
    }

    // A hot folder below the root taking `input`.
    void HotFolder(std::u16string const& name, std::string const& input, std::string const& output = "C:\\Out")
    {
        world().files.WriteFile(std::u16string(kRoot) + u"\\" + name + u"\\Desktop.ini",
                                "[Tarnwick]\r\nInputFolder=" + input + "\r\nOutputFolder=" + output +
                                    "\r\nScript=C:\\Scripts\\stamp.py\r\n");
    }
    // A service is registered and answers the watcher's announcement.
    void StartService()
    {
        world().com.RegisterFolderService(
            [this](os::GUID const& iid, void** object) { return service.QueryInterface(iid, object); });
    }
    void At(DWORD tick, std::function<void()> action) { world().After(tick, std::move(action)); }
    void DropFileAt(DWORD tick, std::u16string const& path)
    {
        At(tick, [this, path] { world().files.WriteFile(path, "%PDF-1.4"); });
    }
    // Every job the plug-in received, as "input > output folder", in order.
    Texts Jobs() const
    {
        Texts jobs;
        for (auto const& frame : plugIn->Frames()) {
            auto const job = DecodeJobPayload(frame.data() + 4, frame.size() - 4);
            jobs.push_back(job && job->script == u"C:\\Scripts\\stamp.py"
                               ? U8(job->input) + " > " + U8(job->outputFolder)
                               : "not a job");
        }
        return jobs;
    }

    FakeFolderService service;
    std::shared_ptr<sim::ScriptedPipeServer> plugIn;
};

// A file is handed on 2000 ms after its last change, on the virtual clock, and
// a turn of the loop in between (a control client connecting) waits only for
// the rest; pause and stop hold files back until run, and a stop does not end
// the watcher.
TEST_F(WatcherLoopTest, SettledFilesBecomeJobsWhileTheServiceSaysRun)
{
    StartService();
    DropFileAt(1000, u"C:\\In\\a.pdf");
    At(1500, [this] { world().files.AppendFile(u"C:\\In\\a.pdf", " more"); });
    auto visitor = sim::ScriptedPipeClient::Create();
    At(1850, [visitor] { EXPECT_TRUE(visitor->Open(kWatcherPipe)) << "a second instance listens"; });
    At(5000, [this] { service.Broadcast(CMD_PAUSE); });
    DropFileAt(6000, u"C:\\In\\b.pdf");
    At(20000, [this] { service.Broadcast(CMD_RUN); });
    At(21000, [this] { service.Broadcast(CMD_STOP); });
    DropFileAt(22000, u"C:\\In\\c.pdf");
    // A read that completes after a wait has returned for another completion,
    // while the loop takes what is queued: it is taken too.
    At(23000, [this] { world().QueueApc([this] { DropFileAt(0, u"C:\\In\\d.pdf"); }); });
    At(29000, [this] { service.Broadcast(CMD_RUN); });
    std::map<DWORD, std::size_t> jobsAt;  // how many jobs the plug-in had received by a tick
    for (DWORD tick : {3500u, 3501u, 20000u, 29000u}) {
        At(tick, [this, tick, &jobsAt] { jobsAt[tick] = plugIn->Frames().size(); });
    }
    RunWatcher(false);
    EXPECT_EQ(service.announced, (std::vector<std::u16string>{kWatcherPipe}));
    EXPECT_EQ(jobsAt, (std::map<DWORD, std::size_t>{{3500, 0}, {3501, 1}, {20000, 1}, {29000, 2}}));
    EXPECT_EQ(Jobs(), (Texts{"C:\\In\\a.pdf > C:\\Out", "C:\\In\\b.pdf > C:\\Out", "C:\\In\\c.pdf > C:\\Out",
                             "C:\\In\\d.pdf > C:\\Out"}));
    EXPECT_EQ(service.references, 0u) << "the watcher released the service at its end";
}

// A burst of writes and a rename, with the change records laid out padded (as
// Windows does) and end to end (as Wine does): a record need not start on a
// 4-byte boundary, no record of a read may be lost either way, and a renamed
// file is handed on under its new name only.
using Layout = sim::FileSystem::RecordLayout;
class RecordLayouts : public WatcherLoopTest, public ::testing::WithParamInterface<Layout> {};

TEST_P(RecordLayouts, EveryFileReachesEachOfItsHotFoldersInTheOrderOfTheWrites)
{
    world().files.recordLayout = GetParam();
    world().files.MakeDirectory(u"C:\\Shared");
    HotFolder(u"B-Stamp", "C:\\Shared", "C:\\Stamped");
    HotFolder(u"A-Print", "C:\\Shared", "C:\\Printed");
    StartService();
    DropFileAt(100, u"C:\\In\\a.txt");
    At(100, [this] {
        // Names of odd and even lengths, written between two waits: one read holds them all.
        for (int i = 1; i <= 120; ++i) {
            world().files.WriteFile(u"C:\\Shared\\f" + Widen(std::to_string(i)) + u".pdf", "%PDF");
        }
    });
    At(1000, [this] { world().files.Rename(u"C:\\In\\a.txt", u"C:\\In\\b.txt"); });
    Texts expected;
    for (int i = 1; i <= 120; ++i) {
        std::string const input = "C:\\Shared\\f" + std::to_string(i) + ".pdf";
        expected.insert(expected.end(), {input + " > C:\\Printed", input + " > C:\\Stamped"});
    }
    expected.push_back("C:\\In\\b.txt > C:\\Out");
    RunWatcher(false);
    EXPECT_EQ(Jobs(), expected);
    EXPECT_EQ(OnlyEvent(MSG_FILE_RENAMED_NEW).strings, (std::vector<std::u16string>{u"C:\\In", u"b.txt"}));
}

INSTANTIATE_TEST_SUITE_P(Watcher, RecordLayouts, ::testing::Values(Layout::Padded, Layout::Packed),
                         [](auto const& info) { return info.param == Layout::Packed ? "Packed" : "Padded"; });

// One file dropped at 100 ms into a watcher whose surroundings fail or change
// in one way: the file's fate, and exactly the report (if any) that each
// failure calls for.
struct OneFileStory {
    const char* name;
    bool service;
    const char* fails;  // the call that fails, or none
    DWORD error;
    void (*at1000)(FakeFolderService&);
    std::size_t jobs;
    DWORD reportId;
    std::string report;                                    // the only report with that id, rendered, or none
    std::optional<std::vector<BYTE>> sent = std::nullopt;  // what a control client writes at 50 ms, then leaving
};

void ServiceExits(FakeFolderService& service)
{
    service.Exit();
}
void HotFolderGoes(FakeFolderService&)
{
    sim::TheWorld().files.Delete(std::u16string(kRoot) + u"\\Invoices\\Desktop.ini");
}

class OneFile : public WatcherLoopTest, public ::testing::WithParamInterface<OneFileStory> {};

TEST_P(OneFile, MeetsItsFateWithExactlyItsReports)
{
    OneFileStory const& story = GetParam();
    if (story.service) {
        StartService();
    }
    world().faults.Fail(story.fails, story.error);
    auto client = sim::ScriptedPipeClient::Create();
    if (story.sent) {
        At(50, [client, &story] {
            ASSERT_TRUE(client->Open(kWatcherPipe));
            client->Write(*story.sent);
        });
        At(80, [client] { client->Close(); });
    }
    DropFileAt(100, u"C:\\In\\a.pdf");
    if (story.at1000) {
        At(1000, [this, &story] { story.at1000(service); });
    }
    RunWatcher(false);
    EXPECT_EQ(Jobs(), Texts(story.jobs, "C:\\In\\a.pdf > C:\\Out"));
    EXPECT_EQ(world().processes.children.Started().size(), story.jobs) << "Acrobat is started for a job only";
    Texts reports;
    for (auto const& record : world().eventLog.WithId(story.reportId)) {
        reports.push_back(U8(sim::EventLog::Render(record)));
    }
    EXPECT_EQ(reports, story.report.empty() ? Texts{} : Texts{story.report});
    EXPECT_EQ(client->ServerClosed(), story.sent.has_value()) << "the watcher closes its end when a client leaves";
}

std::string const kClientLeft =
    "Error passed into ReadPipe(" + kWatcherPipe8 + ") overlapped callback.\r\n\r\nError code: 109\r\n";

// A control client that writes these bytes and leaves, without a service.
OneFileStory Client(const char* name, std::vector<BYTE> const& sent, bool runs)
{
    return {name, false, "", 0, nullptr, runs ? 1u : 0u, MSG_READ_PIPE_CALLBACK_ERROR, kClientLeft, sent};
}
// Codes as a control client writes them: back to back, each in four bytes, low byte first.
std::vector<BYTE> Codes(std::vector<DWORD> const& codes)
{
    std::vector<BYTE> bytes(codes.size() * sizeof(DWORD));
    std::memcpy(bytes.data(), codes.data(), bytes.size());  // this host is little-endian too
    return bytes;
}

// The watcher stays stopped until a service says otherwise, keeps its last
// command when the service goes, drops a file whose hot folder went, listens
// nowhere silently on an instance it could not create while the other serves,
// and stays stopped when its control read cannot start. Of the codes a control
// client writes, only the last one read is in force when the loop next turns,
// any value but pause and stop means run, and a short read keeps the rest of
// the previous code; a client's leaving is reported (44, code 109).
OneFileStory const kOneFileStories[] = {
    {"NoService", false, "", 0, nullptr, 0, MSG_INSTANTIATE_SERVICE_FAILED,
     "Failed to instantiate service.  Error code: 0x80040154.\r\n"},
    {"ServiceGoes", true, "", 0, ServiceExits, 1, MSG_READ_PIPE_CALLBACK_ERROR, kClientLeft},
    {"HotFolderGoes", true, "", 0, HotFolderGoes, 0, MSG_FILE_REMOVED,
     "File removed from " + U8(kRoot) + ":\r\n\r\nInvoices\\Desktop.ini\r\n"},
    {"NoSecondInstance", true, "CreateNamedPipeW", ERROR_ACCESS_DENIED, nullptr, 1, MSG_CREATE_NAMED_PIPE_FAILED, ""},
    {"ControlReadFails", true, "ReadFileEx", ERROR_INVALID_HANDLE, nullptr, 0, MSG_READ_FILE_FAILED,
     "ReadFile(" + kWatcherPipe8 + ") failed.  Error code: 6\r\n"},
    Client("ClientSendsNothing", {}, false),
    Client("RunAlone", Codes({CMD_RUN}), true),
    Client("UnknownValueMeansRun", Codes({0x1234}), true),
    Client("RunRunStop", Codes({CMD_RUN, CMD_RUN, CMD_STOP}), false),
    Client("StopPauseRun", Codes({CMD_STOP, CMD_PAUSE, CMD_RUN}), true),
    Client("RunThenPause", Codes({CMD_RUN, CMD_PAUSE}), false),
    Client("ConnectCodeIsNoPause", Codes({CMD_CONNECT}), true),
    Client("ShortReadAfterRunIsStop", {1, 0x80, 0, 0, 2, 0x80}, false),
};

INSTANTIATE_TEST_SUITE_P(Stories, OneFile, ::testing::ValuesIn(kOneFileStories),
                         [](auto const& info) { return std::string(info.param.name); });

// A watcher that finds another listening for its user, or cannot find its root
// folder, ends before its loop and leaves COM as it found it.
TEST_F(WatcherLoopTest, ASecondWatcherOfTheSameUserExitsWithMessage54)
{
    auto first = sim::ScriptedPipeServer::Create(kWatcherPipe);
    first->Start();
    EXPECT_EQ(RunWatcher(false), 0);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_WATCHER_ALREADY_RUNNING}));
    EXPECT_EQ(OnlyEvent(MSG_WATCHER_ALREADY_RUNNING).type, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(first->Connections(), 1) << "the probe reached the first watcher";
    EXPECT_EQ(world().com.apartments, 0);
}

TEST_F(WatcherLoopTest, AWatcherWithoutARootFolderEndsAfterMessage34)
{
    world().faults.Fail("SHGetFolderPathW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(RunWatcher(false), 0);
    EXPECT_EQ(OnlyEvent(MSG_CREATE_ROOT_FAILED).strings.front(), u"");
    EXPECT_EQ(world().ExhaustedWaits(), 0) << "the loop never ran";
    EXPECT_EQ(world().com.apartments, 0);
}

TEST_F(WatcherLoopTest, AnIdleWatcherNeverWakesUp)
{
    StartService();
    At(60000, [] {});  // the story lasts a virtual minute
    RunWatcher(false);
    EXPECT_EQ(world().TimedOutWaits(), 0);
    EXPECT_EQ(world().Ticks(), 60000u);
}

// As service, Acrobat goes once nothing is pending, or at a pause even in the
// middle of a job; otherwise it is left running.
class AcrobatLifetime : public WatcherLoopTest, public ::testing::WithParamInterface<std::tuple<bool, bool>> {};

TEST_P(AcrobatLifetime, IsTerminatedOnlyAsService)
{
    auto const [asService, pausedInAJob] = GetParam();
    if (pausedInAJob) {
        plugIn->defaultAnswer = sim::ScriptedPipeServer::Reply(1, 5000);
        At(3000, [this] { service.Broadcast(CMD_PAUSE); });  // the job went out at 2100
    }
    StartService();
    DropFileAt(100, u"C:\\In\\a.pdf");
    RunWatcher(asService);
    ASSERT_EQ(world().processes.children.Started().size(), 1u);
    auto const& acrobat = world().processes.children.Started().front();
    EXPECT_EQ(acrobat->terminated, asService);
    EXPECT_EQ(acrobat->running, !asService);
    EXPECT_EQ(acrobat->exitCode, 0u);
    EXPECT_EQ(Jobs(), Texts{"C:\\In\\a.pdf > C:\\Out"});
}

INSTANTIATE_TEST_SUITE_P(Stories, AcrobatLifetime, ::testing::Combine(::testing::Bool(), ::testing::Bool()));

}  // namespace
}  // namespace hf::test
