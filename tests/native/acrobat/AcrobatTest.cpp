// The job message against Python's marshal, Acrobat's launch, the link to a scripted plug-in, the plug-in pipe's name.
#include "SimTest.h"
#include "acrobat/AcrobatLauncher.h"
#include "acrobat/JobMessage.h"
#include "acrobat/PlugInLink.h"
#include "acrobat/PlugInPipe.h"
#include "platform/Sync.h"
#include "platform/sim/SimPipePeers.h"

#include <boost/make_shared.hpp>

#include <array>
#include <cstring>
#include <optional>
#include <sstream>

namespace hf::test {
namespace {

using Texts = std::array<std::u16string, 3>;  // input, script, output folder

// Python's job messages for the texts (passed as UTF-16LE in hexadecimal) in two orders of its items, back to back.
std::vector<BYTE> ReferenceMessages(Texts const& texts)
{
    std::string arguments;
    for (std::u16string const& text : texts) {
        arguments += " '";
        for (char16_t unit : text) {
            for (int shift : {4, 0, 12, 8}) {
                arguments += "0123456789abcdef"[(unit >> shift) & 0xF];
            }
        }
        arguments += "'";
    }
    std::istringstream lines(ReferenceOutput("tests/native/acrobat/marshal_reference.py", arguments));
    std::vector<BYTE> bytes;
    for (std::string hex; lines >> hex;) {
        for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
            bytes.push_back(static_cast<BYTE>(std::stoi(hex.substr(at, 2), nullptr, 16)));
        }
    }
    return bytes;
}

// The message is marshal's for the same dictionary, after its length; the plug-in's side reads marshal's payload back
// whatever the order of its items. One row per UTF-8 length, and lone surrogates.
TEST(JobMessage, IsPythonsMarshal)
{
    for (Texts const& texts : std::vector<Texts>{
             {u"C:\\In\\a\u007F.pdf", u"C:\\Scripts\\x.py", u""},
             {u"C:\\Bücher\\Résumé ß \u0080\u07FF.pdf", u"C:\\Scripts\\ñ.py", u"D:\\Größe"},
             {u"C:\\請求書\\\u0800\uFFFD\uFFFF.pdf", u"C:\\スクリプト\\x.py", u"\\\\server\\出力\\€"},
             {u"C:\\In\\\U0001F600 \U00010000\U0010FFFF.pdf", u"C:\\\U0001D11E.py", u"C:\\Out\\\U00020000"},
             {u"C:\\In\\a\xD800.pdf", u"C:\\\xDC00\xD800x.py", u"C:\\Out\\\xDFFF\xDBFF"}}) {
        SCOPED_TRACE(U8(texts[1]));
        std::vector<BYTE> const reference = ReferenceMessages(texts);
        auto const half = static_cast<std::ptrdiff_t>(reference.size() / 2);  // the two messages have one length
        ASSERT_GT(half, 4);
        EXPECT_EQ(EncodeJobMessage(texts[0], texts[1], texts[2]),
                  std::vector<BYTE>(reference.begin(), reference.begin() + half));
        for (BYTE const* message : {reference.data(), reference.data() + half}) {
            std::optional<Job> const job = DecodeJobPayload(message + 4, static_cast<std::size_t>(half) - 4);
            EXPECT_TRUE(job && (Texts{job->input, job->script, job->outputFolder} == texts));
        }
    }
}

// The plug-in's side refuses anything but a dictionary of the three texts in well-formed UTF-8.
TEST(JobMessage, DecoderRefusesMalformedPayloads)
{
    std::vector<BYTE> const message = EncodeJobMessage(u"éé", u"x", u"y");
    std::vector<BYTE> const good(message.begin() + 4, message.end());  // the input's "éé" at 16..19
    ASSERT_TRUE(DecodeJobPayload(good.data(), good.size()));
    auto changed = [&good](std::size_t at, std::vector<BYTE> const& bytes) {
        std::vector<BYTE> payload = good;
        payload.resize(std::max(good.size(), at + bytes.size()));
        std::copy(bytes.begin(), bytes.end(), payload.begin() + static_cast<std::ptrdiff_t>(at));
        return payload;
    };
    for (auto const& [what, payload] : std::vector<std::pair<char const*, std::vector<BYTE>>>{
             {"cut short", {good.begin(), good.end() - 1}},
             {"trailing byte", changed(good.size(), {'0'})},
             {"keys twice", changed(good.size() - 1, std::vector<BYTE>(good.begin() + 1, good.end()))},
             {"unknown key", changed(6, {'X'})},
             {"overlong", changed(16, {0xE0, 0x9F, 0xBF, 'a'})},
             {"beyond U+10FFFF", changed(16, {0xF4, 0x90, 0x80, 0x80})}}) {
        EXPECT_FALSE(DecodeJobPayload(payload.data(), payload.size())) << what;
    }
}

using PlugIn = sim::ScriptedPipeServer;
constexpr char16_t kAcrobatExe[] = u"C:\\Program Files\\Adobe\\Acrobat\\Acrobat.exe";
char const kBadValue[] = "Failed to read registry key Software\\Tarnwick\\AcrobatPath, value .  Error code: 13\r\n";

std::vector<BYTE> Bytes(std::u16string const& text, std::size_t terminator = 2)
{
    std::vector<BYTE> bytes(text.size() * 2 + terminator, 0);
    std::memcpy(bytes.data(), text.data(), text.size() * 2);
    return bytes;
}

using AcrobatLauncher = SimTest;

// Acrobat is launched from the path read, with its bare file name as command line; a failed read is reported, and then
// the failed launch. The key and Acrobat's thread handle are closed.
TEST_F(AcrobatLauncher, ReadsOnlyAWellFormedString)
{
    std::u16string const a255 = u"C:\\" + std::u16string(252, u'a');
    // The value's type (none: no value, and with no data no key either), its data, the path read, the report.
    // clang-format off
    struct Row { std::optional<DWORD> type; std::vector<BYTE> data; std::u16string path; char const* event; };
    std::vector<Row> const rows{
        {std::nullopt, {}, u"", "Failed to open registry key Software\\Tarnwick\\AcrobatPath.  Error code: 2\r\n"},
        {std::nullopt, {0}, u"", "Failed to read registry key Software\\Tarnwick\\AcrobatPath, value .  Error code: 2\r\n"},
        {REG_BINARY, Bytes(kAcrobatExe), u"", kBadValue},
        {REG_SZ, Bytes(u"C:\\a.exe", 3), u"", kBadValue},  // odd length
        {REG_SZ, Bytes(kAcrobatExe, 0), u"", kBadValue},  // no terminator
        {REG_SZ, {}, u"", ""},
        {REG_EXPAND_SZ, Bytes(u"%ProgramFiles%\\A.exe"), u"%ProgramFiles%\\A.exe", ""},  // taken as it stands
        {REG_SZ, Bytes(std::u16string(u"C:\\a.exe\0junk", 13)), u"C:\\a.exe", ""},  // the text ends at its first NUL
        {REG_SZ, Bytes(a255), a255, ""}};
    // clang-format on
    EventReporter reporter(kCategoryUser);
    world().processes.children.AddImage(u"C:\\Acrobat.exe");
    for (Row const& row : rows) {
        SCOPED_TRACE(&row - rows.data());
        world().registry.Clear();
        world().eventLog.Clear();
        if (row.type) {
            world().registry.SetRaw(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", *row.type, row.data);
        } else if (!row.data.empty()) {
            world().registry.CreateKey(HKEY_LOCAL_MACHINE, kAcrobatPathKey);
        }
        if (!row.path.empty()) {
            world().processes.children.AddImage(row.path);
        }
        long const handles = HandlesLeftOpen();
        std::size_t const launches = world().processes.children.Started().size();
        UniqueKernelHandle const acrobat(LaunchAcrobat(reporter));
        auto const& started = world().processes.children.Started();
        ASSERT_EQ(started.size() - launches, row.path.empty() ? 0u : 1u);
        std::vector<std::string> events = RenderedEvents();
        if (row.path.empty()) {
            ASSERT_EQ(world().eventLog.Records().back().eventId, MSG_CREATE_PROCESS_ACROBAT_FAILED);
            events.pop_back();
        } else {
            EXPECT_EQ(U8(started.back()->applicationName + u"|" + started.back()->commandLine),
                      U8(row.path + u"|" + row.path.substr(row.path.rfind(u'\\') + 1)));
        }
        EXPECT_EQ(events, std::vector<std::string>(*row.event ? 1 : 0, row.event));
        EXPECT_TRUE(events.empty() || world().eventLog.Records().front().type == EVENTLOG_ERROR_TYPE);
        EXPECT_EQ(HandlesLeftOpen() - handles, acrobat ? 1 : 0);
    }
    // 256 characters do not fit the 512-byte read: the exception that nobody catches ends the watcher.
    world().registry.SetString(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", a255 + u"a");
    world().eventLog.Clear();
    EXPECT_THROW(LaunchAcrobat(reporter), HResultError);
    EXPECT_TRUE(EventIds().empty());
}

class PlugInLinkTest : public SimTest {
protected:
    PlugInLinkTest()
    {
        world().registry.SetString(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", kAcrobatExe);
        spec->Script = u"C:\\Scripts\\stamp.py";
        spec->OutputFolder = u"C:\\Hot\\Done";
    }
    // Hands on a job and, with `run`, runs the loop's turns until Poll says the link is idle. False when it stays busy
    // with nothing left that could ever end its wait.
    bool Job(std::u16string const& input, bool run = true)
    {
        link->SendJob(input, spec);
        sent.push_back(EncodeJobMessage(input, spec->Script, spec->OutputFolder));
        return !run || Run();
    }
    bool Run()
    {
        DWORD timeout = 0;
        for (int turn = 0; link->Poll(timeout); ++turn) {
            HANDLE const events[] = {neverSignalled.get()};
            if (turn == 1000 || os::WaitForMultipleObjectsEx(1, events, FALSE, timeout, TRUE) == WAIT_FAILED) {
                return false;
            }
        }
        return true;
    }
    sim::ChildProcess& Acrobat(std::size_t launch) { return *world().processes.children.Started().at(launch); }
    std::size_t Launches() { return world().processes.children.Started().size(); }

    std::shared_ptr<PlugIn> plugIn = PlugIn::Create(u"\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk");
    HotFolderSpecPtr spec = boost::make_shared<HotFolderSpec>();
    EventReporter reporter{kCategoryUser};
    UniqueKernelHandle neverSignalled{os::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    long const fixtureHandles = HandlesLeftOpen();
    std::optional<PlugInLink> link;
    std::vector<std::vector<BYTE>> sent;
};

// Jobs over a plug-in that serves on its own, each answered before the next: a failure on a reused pipe is retried once
// over a reopened one, a zero reply closes the pipe, and a relaunch that fails leaves the link busy for good.
TEST_F(PlugInLinkTest, JobsOverAServingPlugIn)
{
    link.emplace(reporter, false);
    EXPECT_TRUE(Job(u"C:\\In\\0.pdf")) << "no pipe, and Acrobat not installed: the job is dropped";
    plugIn->Start();
    DWORD const start = world().Ticks();
    for (auto const& answer : {PlugIn::Break(),           // a: not retried on a fresh connection
                               PlugIn::Reply(1),          // b: the kept broken pipe fails, a reopened one serves
                               PlugIn::Reply(1, 120000),  // c: reuses the pipe; a slow reply is awaited
                               PlugIn::Break(), PlugIn::Reply(1),  // d: retried over a reopened pipe
                               PlugIn::Break(), PlugIn::Break(),   // e: the retry is the only one
                               PlugIn::Reply(0)}) {                // f: the plug-in ends the connection
        plugIn->Then(answer);
    }
    for (char16_t const* input : {u"C:\\In\\a", u"C:\\In\\b", u"C:\\In\\c", u"C:\\In\\d", u"C:\\In\\e", u"C:\\In\\f"}) {
        EXPECT_TRUE(Job(input)) << U8(input);
    }
    EXPECT_EQ(HandlesLeftOpen() - fixtureHandles, 0) << "the zero reply closed the pipe";
    EXPECT_TRUE(Job(u"C:\\In\\g.pdf")) << "over a fresh connection";
    EXPECT_EQ(world().Ticks() - start, 120000u);
    EXPECT_EQ(plugIn->Frames(), (std::vector<std::vector<BYTE>>{sent[1], sent[2], sent[3], sent[4], sent[4], sent[5],
                                                                sent[5], sent[6], sent[7]}));
    // The plug-in goes away; the retry finds no pipe and Acrobat cannot be launched.
    plugIn->Stop();
    EXPECT_FALSE(Job(u"C:\\In\\h.pdf"));
    plugIn->Start();
    EXPECT_FALSE(Run()) << "busy for good, even with the plug-in back";
    std::vector<std::string> events(8,
                                    "Connected to plug-in message pipe \\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk.\r\n");
    events.front() = events.back() = "CreateProcess(Acrobat.exe) failed.  Error code: 2\r\n";
    EXPECT_EQ(RenderedEvents(), events);
    for (auto const& record : world().eventLog.Records()) {  // a connection is news, a failed launch an error
        EXPECT_EQ(record.type,
                  record.eventId == MSG_CONNECTED_TO_PLUGIN_PIPE ? EVENTLOG_INFORMATION_TYPE : EVENTLOG_ERROR_TYPE);
    }
}

class PlugInLinkLaunch : public PlugInLinkTest, public ::testing::WithParamInterface<bool> {};

// No pipe: Acrobat is launched and the pipe tried every 2000 ms until its plug-in serves. As service the link ends that
// Acrobat when the plug-in ends the connection; otherwise the user goes on using it. A closed one is launched again.
TEST_P(PlugInLinkLaunch, AcrobatIsLaunchedForItsPlugIn)
{
    bool const asService = GetParam();
    world().processes.children.AddImage(kAcrobatExe,
                                        [p = plugIn](auto const& process) { p->RunInside(process, 5000); });
    link.emplace(reporter, asService);
    DWORD const start = world().Ticks();
    EXPECT_TRUE(Job(u"C:\\In\\a.pdf"));
    EXPECT_EQ(world().Ticks() - start, 6000u);
    EXPECT_EQ(Acrobat(0).HandlesOpen(), asService ? 1 : 0);
    plugIn->Then(PlugIn::Reply(0));
    EXPECT_TRUE(Job(u"C:\\In\\b.pdf"));
    EXPECT_EQ(HandlesLeftOpen() - fixtureHandles, 0) << "the pipe, and Acrobat's handle, are closed";
    EXPECT_EQ(std::pair(Acrobat(0).running, Acrobat(0).terminated), std::pair(!asService, asService));
    EXPECT_TRUE(Job(u"C:\\In\\c.pdf"));
    EXPECT_EQ(Launches(), asService ? 2u : 1u);
    Acrobat(Launches() - 1).Exit(0);
    EXPECT_TRUE(Job(u"C:\\In\\d.pdf"));
    EXPECT_EQ(Launches(), asService ? 3u : 2u);
    EXPECT_EQ(plugIn->Frames(), sent);
    EXPECT_EQ(EventIds(), std::vector<DWORD>(3, MSG_CONNECTED_TO_PLUGIN_PIPE));
}

INSTANTIATE_TEST_SUITE_P(AsServiceOrNot, PlugInLinkLaunch, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "AsService" : "NotAsService"; });

enum Meanwhile { None, WaitFails, Terminate };  // the wait on Acrobat fails, or the loop ends Acrobat
// Acrobat exits by itself after exitAfter ms (0: never); the link gives up after `elapsed` ms with `event`.
// clang-format off
struct WaitRow { char const* name; bool asService; DWORD startTick, exitAfter; Meanwhile meanwhile; DWORD elapsed; char const* event; bool running; };
// clang-format on
char const kNoPlugIn[] = "CreateFile(\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk) failed.  Error code: 2\r\n";

class PlugInNeverServes : public PlugInLinkTest, public ::testing::WithParamInterface<WaitRow> {};

// The plug-in never serves: the link gives up at the first poll after 30000 ms (the limit first, Acrobat's exit
// second), lets go of Acrobat, drops the job, and launches Acrobat again for the next.
TEST_P(PlugInNeverServes, TheLinkGivesUpAndTheNextJobLaunchesAgain)
{
    WaitRow const& row = GetParam();
    world().SetTicks(row.startTick);
    world().processes.children.AddImage(kAcrobatExe, [&row](auto const& process) {
        if (row.exitAfter != 0) {
            process->ExitAfter(row.exitAfter, 1);
        }
    });
    link.emplace(reporter, row.asService);
    Job(u"C:\\In\\a.pdf", false);
    EXPECT_EQ(Acrobat(0).HandlesOpen(), 1) << "held while its plug-in is awaited";
    if (row.meanwhile == WaitFails) {
        world().faults.Fail("WaitForSingleObject", ERROR_ACCESS_DENIED);
    } else if (row.meanwhile == Terminate) {
        link->TerminateAcrobat();
    }
    EXPECT_TRUE(Run());
    EXPECT_EQ(static_cast<DWORD>(world().Ticks() - row.startTick), row.elapsed);
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{row.event});
    EXPECT_EQ(std::pair(Acrobat(0).running, Acrobat(0).HandlesOpen()), std::pair(row.running, 0));
    Job(u"C:\\In\\b.pdf", false);
    EXPECT_EQ(Launches(), 2u);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Stories, PlugInNeverServes, ::testing::Values(
    WaitRow{"AcrossTheTickCountersWrap", false, 0xFFFFFFFFu - 5000, 0, None, 32000, kNoPlugIn, true},
    WaitRow{"AcrobatExits", true, 1000, 3000, None, 4000, "Acrobat.exe exited while waiting to connect to Hot Folder message window.\r\n", false},
    WaitRow{"AcrobatExitsAfterTheLimit", false, 1000, 31000, None, 32000, kNoPlugIn, false},
    WaitRow{"WaitFails", false, 1000, 0, WaitFails, 0, "WaitForSingleObject() failed.  Error code: 5\r\n", true},
    WaitRow{"AcrobatTerminatedAsService", true, 1000, 0, Terminate, 0, "WaitForSingleObject() failed.  Error code: 6\r\n", false},
    WaitRow{"TerminateIgnoredNotAsService", false, 1000, 0, Terminate, 32000, kNoPlugIn, true}),
    [](auto const& info) { return std::string(info.param.name); });
// clang-format on

// The plug-in's pipe is named after DOMAIN\user, every backslash made an underscore, however long the name (its buffer
// starts at 1024 characters and doubles until it fits); a name that cannot be read leaves the prefix alone, silently.
TEST_F(PlugInLinkTest, PlugInPipeIsNamedAfterTheUser)
{
    std::u16string const longName(4996, u'ü');  // beyond the first buffer's doubles, and not ASCII
    world().processes.current.userName = u"A\\B\\" + longName;
    EXPECT_EQ(U8(PlugInPipeName()), U8(u"\\\\.\\pipe\\Tarnwick_PlugIn_A_B_" + longName));
    world().processes.current.userName = u"";  // GetUserNameExW fails on an empty name
    EXPECT_EQ(U8(PlugInPipeName()), "\\\\.\\pipe\\Tarnwick_PlugIn_");
    EXPECT_TRUE(EventIds().empty());
}

}  // namespace
}  // namespace hf::test
