// The real RunWatcher with a hot folder, an Acrobat whose plug-in answers every
// job and maybe a service, on the virtual clock until its script is exhausted.
#include "SimTest.h"
#include "acrobat/AcrobatLauncher.h"
#include "acrobat/JobMessage.h"
#include "platform/Com.h"
#include "platform/sim/SimPipePeers.h"
#include "supervisor/Command.h"
#include "supervisor/WatcherLinks.h"
#include "watcher/RunWatcher.h"

#include <optional>

namespace hf::test {
namespace {

using Texts = std::vector<std::string>;
constexpr char16_t kAcrobatExe[] = u"C:\\Program Files\\Adobe\\Acrobat\\Acrobat.exe";
constexpr char16_t kWatcherPipe[] = u"\\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_clerk";
constexpr char16_t kRoot[] = u"C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders";
std::u16string const kInvoicesIni = std::u16string(kRoot) + u"\\Invoices\\Desktop.ini";
std::string const kWatcherPipe8 = U8(kWatcherPipe);

// The service as the watcher sees it: its ConnectWatcher connects back and
// writes the current command through the service's own protocol code.
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

    void Broadcast(DWORD code)
    {
        currentCommand = code == CMD_STOP ? currentCommand : code;
        BroadcastCommand(code, links, events);
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
        world().files.WriteFile(kInvoicesIni,
                                "[Tarnwick]\r\nInputFolder=C:\\In\r\nOutputFolder=C:\\Out\r\n"
                                "Script=C:\\Scripts\\stamp.py\r\n");
    }

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

// A file is handed on 2000 ms after its last change; a turn of the loop in
// between (a client connecting) waits only for the rest. Pause and stop hold
// files back until run, and a stop does not end the watcher.
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
    int timedOut = 0;
    At(30000, [this, &timedOut] { timedOut = world().TimedOutWaits(); });
    At(90000, [] {});  // a virtual minute with nothing to do
    RunWatcher(false);
    EXPECT_EQ(world().TimedOutWaits(), timedOut) << "an idle watcher never wakes up";
    EXPECT_EQ(service.announced, (std::vector<std::u16string>{kWatcherPipe}));
    EXPECT_EQ(jobsAt, (std::map<DWORD, std::size_t>{{3500, 0}, {3501, 1}, {20000, 1}, {29000, 2}}));
    EXPECT_EQ(Jobs(), (Texts{"C:\\In\\a.pdf > C:\\Out", "C:\\In\\b.pdf > C:\\Out", "C:\\In\\c.pdf > C:\\Out",
                             "C:\\In\\d.pdf > C:\\Out"}));
    EXPECT_EQ(service.references, 0u) << "the watcher released the service at its end";
}

// One file dropped at 100 ms into a watcher whose surroundings fail or change
// in one way: the file's fate, and exactly the report each failure calls for.
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

// The service process ends: its pipe ends close.
void ServiceExits(FakeFolderService& service)
{
    for (auto const& link : service.links) {
        os::CloseHandle(link.second.pipe);
    }
    service.links.clear();
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

// The watcher stays stopped until a service says otherwise, keeps its last
// command when the service goes, drops a file whose hot folder went, listens
// silently on one instance when it cannot create the other, and stays stopped
// when its control read cannot start. Of the codes a client writes (four bytes
// each, low byte first), the last one read is in force at the next turn, any
// value but pause and stop means run, and a short read keeps the rest of the
// previous code; a client's leaving is reported (44, code 109).
OneFileStory const kOneFileStories[] = {
    {"ServiceGoes", true, "", 0, ServiceExits, 1, MSG_READ_PIPE_CALLBACK_ERROR, kClientLeft},
    {"HotFolderGoes", true, "", 0, [](FakeFolderService&) { sim::TheWorld().files.Delete(kInvoicesIni); }, 0,
     MSG_FILE_REMOVED, "File removed from " + U8(kRoot) + ":\r\n\r\nInvoices\\Desktop.ini\r\n"},
    {"NoSecondInstance", true, "CreateNamedPipeW", ERROR_ACCESS_DENIED, nullptr, 1, MSG_CREATE_NAMED_PIPE_FAILED, ""},
    {"ControlReadFails", true, "ReadFileEx", ERROR_INVALID_HANDLE, nullptr, 0, MSG_READ_FILE_FAILED,
     "ReadFile(" + kWatcherPipe8 + ") failed.  Error code: 6\r\n"},
    Client("ClientSendsNothing", {}, false),
    Client("StopPauseThenAnUnknownValueMeansRun", {2, 0x80, 0, 0, 0, 0x80, 0, 0, 0x34, 0x12, 0, 0}, true),
    Client("RunThenPause", {1, 0x80, 0, 0, 0, 0x80, 0, 0}, false),
    Client("ShortReadAfterRunIsStop", {1, 0x80, 0, 0, 2, 0x80}, false),
};

INSTANTIATE_TEST_SUITE_P(Stories, OneFile, ::testing::ValuesIn(kOneFileStories),
                         [](auto const& info) { return std::string(info.param.name); });

// A watcher that finds another listening for its user, or has no root folder,
// says so and ends before its loop, leaving COM as it found it.
TEST_F(WatcherLoopTest, EndsBeforeItsLoopWhenAnotherListensOrThereIsNoRoot)
{
    auto first = sim::ScriptedPipeServer::Create(kWatcherPipe);
    first->Start();
    world().faults.Fail("SHGetFolderPathW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(RunWatcher(false), 0);
    first->Stop();
    EXPECT_EQ(RunWatcher(false), 0);
    EXPECT_EQ(RenderedEvents(), (Texts{"Exiting because there is already a hot folder watcher process running.\r\n",
                                       "Failed to instantiate service.  Error code: 0x80040154.\r\n",
                                       "Failed to create user's hot folder folder .  Error code: 5\r\n"}));
    EXPECT_EQ(world().eventLog.Records()[0].type, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(world().ExhaustedWaits(), 0) << "no loop ran";
    EXPECT_EQ(world().com.apartments, 0);
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
    EXPECT_EQ(acrobat->exitCode, 0u);
}

INSTANTIATE_TEST_SUITE_P(Stories, AcrobatLifetime, ::testing::Combine(::testing::Bool(), ::testing::Bool()));

}  // namespace
}  // namespace hf::test
