// The process entry run whole: the role a command line chooses, the first report, what each role leaves behind.
#include "Entry.h"
#include "InstallUserAction.h"
#include "ProgramSwitches.h"
#include "ServiceIdentity.h"
#include "SimTest.h"
#include "platform/sim/CommandLineSplit.h"

namespace hf::test {
namespace {

using namespace std::string_literals;
constexpr char16_t kExe[] = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";

// The first keyword (A to Z folded) after "-" or "/" counts; -startservice wins, then the watcher switches,
// else the service path. Rows: the role (S service, W watcher with i(nstall user), s(ervice); X start), the user.
TEST(SwitchScan, ChoosesTheRoleOfTheCommandLine)
{
    std::pair<const char16_t*, const char*> const rows[] = {
        {u"hf.exe -pause -asuser:DOMAIN\\name", "S:DOMAIN\\name"},
        {u"hf.exe -asuser:A /asuser:B -asservice", "Ws:B"},
        {u"hf.exe \"-asuser:OFFICE\\Jo Doe\" /CURRENTUSERxyz", "W:OFFICE\\Jo Doe"},
        {u"hf.exe -currentuser -installuser -RegServer", "Wi:"},
        {u"hf.exe -installuser /StartServiceNow -asuser:B", "X:"},
        {u"hf.exe -current -install -asserv -start currentuser \\asservice -pauseinstalluser -currentu\u017Fer", "S:"},
    };
    for (auto const& [line, expected] : rows) {
        auto arguments = sim::SplitCommandLine(line, u"C:\\x.exe");
        ProgramSwitches const s = ScanProgramSwitches({arguments.begin() + 1, arguments.end()});
        std::string const role = s.startService ? "X"
                                 : s.runWatcher ? "W"s + (s.installUser ? "i" : "") + (s.asService ? "s" : "")
                                                : "S";
        EXPECT_EQ(role + ":" + U8(s.asUserName), expected) << U8(line);
    }
}

class EntryTest : public SimTest {
protected:
    // Runs the executable with `arguments` as a fresh process, which first reports its raw command line under the
    // process owner (the Wine stories check the report's id, type and category); the reports after that one.
    std::vector<std::string> Run(std::u16string const& arguments, int expectedExit)
    {
        NewProcess();
        world().eventLog.Clear();
        auto& process = world().processes.current;
        process.commandLine = u"\"" + std::u16string(kExe) + u"\" " + arguments;
        EXPECT_EQ(HotFolderMain(nullptr, 1), expectedExit);
        sim::EventRecord const first = world().eventLog.Records().at(0);
        EXPECT_EQ(first.strings.at(0) + u" " + first.userSid, process.commandLine + u" " + process.ownerSid);
        auto texts = RenderedEvents();
        return {texts.begin() + 1, texts.end()};
    }
};

// -startservice exits 1 only when the start was accepted; every failure is reported and exits 0, and nothing else of
// the command line is acted on.
TEST_F(EntryTest, StartServiceExitsOneOnlyWhenTheStartIsAccepted)
{
    // The installed service's state, the failing call, its error, the exit code, the report.
    // clang-format off
    std::tuple<DWORD, const char*, DWORD, int, std::string> const rows[] = {
        {SERVICE_STOPPED, "OpenSCManagerW", ERROR_ACCESS_DENIED, 0, "Failed to open the service control manager.  Error code: 5\r\n"},
        {SERVICE_STOPPED, "", 0, 1, ""},
        {SERVICE_RUNNING, "", 0, 0, ""},
        {SERVICE_STOPPED, "StartServiceW", ERROR_SERVICE_DISABLED, 0, "Failed to start the service Tarnwick Hot Folders.  Error code: 1058\r\n"},
    };
    // clang-format on
    world().registry.CreateKey(HKEY_CURRENT_USER, kRunKeyPath);
    for (auto const& [state, failingCall, error, exitCode, report] : rows) {
        SCOPED_TRACE(report);
        world().services.Clear();
        world().services.Install(kServiceName).state = state;
        world().faults.Fail(failingCall, error);  // "" fails nothing
        EXPECT_EQ(Run(u"-installuser -startservice -currentuser", exitCode),
                  report.empty() ? std::vector<std::string>{} : std::vector{report});
        EXPECT_TRUE(world().eventLog.Records().back().type == EVENTLOG_ERROR_TYPE || report.empty());
        EXPECT_EQ(world().services.Find(kServiceName)->startRequests, exitCode);
        EXPECT_FALSE(world().registry.Value(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName)) << "no Run value";
        EXPECT_EQ(std::vector<long>({world().processes.threadsCreated, HandlesLeftOpen()}), std::vector<long>({0, 0}));
    }
}

// -installuser writes the Run value (its size counts the terminating null) and runs the watcher; where the key cannot
// be opened or written it says why and runs the watcher all the same.
TEST_F(EntryTest, InstallUserWritesTheRunValueAndRunsTheWatcher)
{
    std::string const key = "registry key Software\\Microsoft\\Windows\\CurrentVersion\\Run";
    std::pair<std::string, std::string> const rows[] = {
        {"", ""},
        {"RegOpenKeyExW", "Failed to open " + key + ".  Error code: 5\r\n"},
        {"RegSetValueExW", "Failed to write " + key + ", value Tarnwick Hot Folder Watcher.  Error code: 5\r\n"}};
    std::string const ranWatcher = "Failed to instantiate service.  Error code: 0x80040154.\r\n";
    for (auto const& [failingCall, report] : rows) {
        world().registry.SetString(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName, u"old");
        world().faults.Fail(failingCall, ERROR_ACCESS_DENIED);  // "" fails nothing
        auto reports = Run(u"-installuser", 0);
        auto const value = world().registry.Value(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName);
        std::u16string const data(reinterpret_cast<char16_t const*>(value->data.data()), value->data.size() / 2);
        EXPECT_EQ(std::to_string(value->type) + U8(data),
                  "1" + (report.empty() ? "\"" + U8(kExe) + "\" -currentuser" + '\0' : "old"s + '\0'));
        reports.resize(report.empty() ? 1 : 2);  // the watcher's later reports aside
        EXPECT_EQ(reports, (report.empty() ? std::vector{ranWatcher} : std::vector{report, ranWatcher}));
        EXPECT_EQ(world().processes.threadsCreated, 0) << "the watcher role starts no supervisor";
    }
}

// Started by hand while registered as the service, the process cannot reach the service dispatcher: it ends with 1063
// (the Wine story checks its report) and stops its supervisor, with or without one.
TEST_F(EntryTest, TheServicePathEndsWith1063WhenTheServiceCannotRun)
{
    world().registry.SetString(HKEY_CLASSES_ROOT, u"AppID\\" + std::u16string(kAppId), u"LocalService", kServiceName);
    for (bool thread : {true, false}) {
        world().faults.Fail(thread ? "" : "CreateThread", ERROR_NOT_ENOUGH_MEMORY);
        Run(u"-pause  -asuser:DOMAIN\\name", 1063);  // the line is reported as it came
        EXPECT_EQ(std::pair(world().processes.threadsCreated, world().processes.threadsFinished), std::pair(1, 1))
            << "the first run's supervisor, ended; none in the second";
        EXPECT_EQ(world().ExhaustedWaits(), 0) << "the supervisor ended on the posted stop";
        EXPECT_EQ(std::vector<long>({world().eventLog.openSources, HandlesLeftOpen()}), std::vector<long>({0, 0}));
    }
}

}  // namespace
}  // namespace hf::test
