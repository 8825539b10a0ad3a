// Fuzz target: the change records of the watcher's directory reads. Any bytes,
// reported with any byte count or any error, complete a watch's outstanding
// read on the simulated machine, and the real completion routines walk them:
// OnRootChange loads the Desktop.ini files it is told of, OnFolderChange
// queues files, and both report every record. Between completions the user
// changes hot folders and files, so watches are shared, released, woken and
// ended, and the simulated system completes reads with its own records.
//
// The input is a script. Its first byte chooses how the machine lays out its
// own records (bit 0: packed as Wine does, else padded) and how it reports lost
// changes (bit 1: error 1022, else zero bytes). Then steps, each led by a byte
// `op`:
//   op % 4 == 0 or 1  a completion: the watch (byte; the root first, then the
//                     input folders' watches in table order), the error (dword,
//                     only when op & 0x10, else 0), the byte count (dword), and
//                     when the error is 0 and the count is not, the length
//                     (word) and the bytes the system put into the buffer
//   op % 4 == 2       a change by the user: what (byte), which (byte)
//   op % 4 == 3       time passes: milliseconds (word)
//
// Rules checked: each completion reports exactly the records of its buffer
// (walked from the first, ending after the one whose offset to the next is 0
// or before one that would reach past the buffer), with its own message and
// type, and nothing else of 38 to 43; an error is one message 37 and ends the
// watch's reads; a watch no hot folder uses ends at its completion; each
// completion without error issues the next read; an input folder's records
// touch and forget exactly the pending files the records name; a Desktop.ini
// record leaves the tables holding the hot folder exactly when its file is
// complete; both spec tables hold the same specs; the root's use count never
// falls below 1; the pending files stay in the order of their last touch.
#include "EventReporter.h"
#include "FuzzInput.h"
#include "FuzzSupport.h"
#include "WatcherUnderTest.h"
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Paths.h"
#include "platform/sim/SimFileObjects.h"
#include "platform/sim/SimWorld.h"
#include "watcher/ChangeRecords.h"
#include "watcher/DirectoryWatch.h"
#include "watcher/HotFolderTree.h"
#include "watcher/HotFolderWatcher.h"
#include "watcher/InputFiles.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace hf::fuzz {
namespace {

constexpr char16_t kRoot[] = u"C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders";

std::u16string InRoot(std::u16string const& relative)
{
    return JoinPath(kRoot, relative);
}

std::string IniText(std::string const& input, bool withScript = true)
{
    return "[.ShellClassInfo]\r\nIconResource=hot.ico,0\r\n[Tarnwick]\r\nInputFolder=" + input +
           "\r\nOutputFolder=..\\Done\r\n" + (withScript ? "Script=C:\\Scripts\\stamp.py\r\n" : "");
}

std::string Utf16Text(std::string const& ascii)
{
    std::string bytes = "\xFF\xFE";
    for (char c : ascii) {
        bytes += c;
        bytes += '\0';
    }
    return bytes;
}

// The Desktop.ini texts the user writes: input folders below the root, outside
// it, shared, missing, beside the root, and incomplete or empty files.
std::vector<std::string> const& IniVariants()
{
    static std::vector<std::string> const variants = {
        IniText("In"),
        IniText("D:\\Scans\\Incoming"),
        IniText("D:\\Shared"),
        Utf16Text(IniText("\"D:\\Shared\"")),
        IniText("."),
        IniText("..\\..\\Tarnwick Hot Folders Archive"),
        IniText("D:\\Nowhere"),
        IniText("In", false),
        IniText("..\\Invoices\\In"),
        "",
    };
    return variants;
}

// The hot folders of the root and the variant each starts with.
struct HotFolderStart {
    char16_t const* name;
    std::size_t variant;
};
constexpr HotFolderStart kHotFolders[] = {
    {u"Invoices", 0}, {u"Scans", 1},   {u"SharedA", 2}, {u"SharedB", 3},
    {u"Self", 4},     {u"Sibling", 5}, {u"Nowhere", 6}, {u"Incomplete", 7},
};
constexpr std::size_t kHotFolderCount = std::size(kHotFolders);

// The folders the user drops files into, and the names used there.
std::u16string const kFolders[] = {
    InRoot(u"Invoices\\In"), u"D:\\Scans\\Incoming", u"D:\\Shared", InRoot(u"Self"), kRoot,
};
char16_t const* const kFileNames[] = {u"scan.pdf", u"Report 7.PDF", u"x", u"Desktop.ini"};

std::u16string DesktopIniOf(std::size_t hotFolder)
{
    return InRoot(std::u16string(kHotFolders[hotFolder].name) + u"\\Desktop.ini");
}

void ArrangeMachine(BYTE layout)
{
    sim::World& world = sim::TheWorld();
    world.files.recordLayout =
        (layout & 1) != 0 ? sim::FileSystem::RecordLayout::Packed : sim::FileSystem::RecordLayout::Padded;
    world.files.overflowError = (layout & 2) != 0 ? 1022 : 0;
    for (auto const* folder :
         {u"D:\\Scans\\Incoming", u"D:\\Shared", u"C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders Archive"}) {
        world.files.MakeDirectory(folder);
    }
    world.files.MakeDirectory(InRoot(u"Invoices\\In"));
    for (std::size_t i = 0; i < kHotFolderCount; ++i) {
        world.files.WriteFile(DesktopIniOf(i), IniVariants()[kHotFolders[i].variant]);
    }
}

// One change record as the rules read it from a buffer.
struct Expected {
    DWORD action;
    std::u16string name;
};

DWORD DwordAt(BYTE const* at)
{
    DWORD value = 0;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// The records of a buffer: from the first, each header and name wholly inside
// the buffer, until the one whose offset to the next is 0.
std::vector<Expected> RecordsOf(BYTE const* buffer, std::size_t size)
{
    std::vector<Expected> records;
    std::size_t offset = 0;
    while (offset + 12 <= size) {
        DWORD const next = DwordAt(buffer + offset);
        std::size_t const nameBytes = DwordAt(buffer + offset + 8);
        if (nameBytes > size - offset - 12) {
            break;
        }
        std::u16string name(nameBytes / 2, u'\0');
        std::memcpy(name.data(), buffer + offset + 12, name.size() * 2);
        records.push_back(Expected{DwordAt(buffer + offset + 4), name});
        if (next == 0) {
            break;
        }
        offset += next;
    }
    return records;
}

// The report a record gets: its message and event type.
std::pair<DWORD, WORD> ReportOf(DWORD action)
{
    switch (action) {
        case 1:
            return {MSG_FILE_ADDED, EVENTLOG_INFORMATION_TYPE};
        case 2:
            return {MSG_FILE_REMOVED, EVENTLOG_INFORMATION_TYPE};
        case 3:
            return {MSG_FILE_MODIFIED, EVENTLOG_INFORMATION_TYPE};
        case 4:
            return {MSG_FILE_RENAMED_OLD, EVENTLOG_INFORMATION_TYPE};
        case 5:
            return {MSG_FILE_RENAMED_NEW, EVENTLOG_INFORMATION_TYPE};
        default:
            return {MSG_FILE_UNKNOWN_ACTION, EVENTLOG_WARNING_TYPE};
    }
}

bool IsRecordReport(sim::EventRecord const& record)
{
    return record.eventId >= MSG_FILE_ADDED && record.eventId <= MSG_FILE_UNKNOWN_ACTION;
}

// Event strings are passed as NUL-terminated texts.
std::u16string AsEventString(std::u16string const& text)
{
    return std::u16string(text.c_str());
}

// The pending files as a folder's records must leave them: the files they name
// last touched at the back in the order of those touches, the ones they name
// last forgotten gone, all others as they were.
void CheckPendingAfter(WatcherUnderTest& watcher, DirectoryWatch const& watch, std::vector<Expected> const& records,
                       std::vector<PendingFile> const& before)
{
    HotFolderWatcher& state = watcher.State();
    std::map<std::u16string, std::pair<bool, std::size_t>, PathOrder> last;  // touched?, order of the record
    std::vector<std::u16string> spellings;
    for (std::size_t i = 0; i < records.size(); ++i) {
        std::u16string const path = JoinPath(watch.path, records[i].name);
        if (os::PathIsDirectoryW(path.c_str()) || !IsWatchedInputFile(path, state.specsByInput)) {
            continue;
        }
        DWORD const action = records[i].action;
        if (action == 1 || action == 3 || action == 5) {
            last.erase(path);
            last.emplace(path, std::make_pair(true, spellings.size()));
            spellings.push_back(path);
        } else if (action == 2 || action == 4) {
            last.erase(path);
            last.emplace(path, std::make_pair(false, 0));
        }
    }
    std::vector<std::u16string> expected;
    for (auto const& file : before) {
        if (last.count(file.path) == 0) {
            expected.push_back(file.path);
        }
    }
    std::vector<std::size_t> touched;
    for (auto const& entry : last) {
        if (entry.second.first) {
            touched.push_back(entry.second.second);
        }
    }
    std::sort(touched.begin(), touched.end());
    for (std::size_t order : touched) {
        expected.push_back(spellings[order]);
    }
    std::vector<std::u16string> actual;
    for (auto const& file : state.pending) {
        actual.push_back(file.path);
    }
    HF_FUZZ_CHECK(actual == expected, ToUtf8(watch.path) + ": " + std::to_string(actual.size()) + " pending, " +
                                          std::to_string(expected.size()) + " expected");
}

// After the root's records: each Desktop.ini they name, by its last spelling,
// is loaded exactly when its file is complete.
void CheckSettingsAfter(WatcherUnderTest& watcher, std::vector<Expected> const& records)
{
    std::map<std::u16string, std::u16string, PathOrder> named;
    for (auto const& record : records) {
        if (IsSettingsChange(record.name)) {
            std::u16string const path = JoinPath(watcher.Root().path, record.name);
            named.erase(path);
            named.emplace(path, path);
        }
    }
    for (auto const& entry : named) {
        HotFolderSpec fresh;
        bool const complete = LoadHotFolderSpec(watcher.Events(), entry.second, fresh);
        auto probe = boost::make_shared<HotFolderSpec>();
        probe->DesktopIniPath = entry.second;
        auto const found = watcher.State().specsByIni.find(probe);
        if (!complete) {
            HF_FUZZ_CHECK(found == watcher.State().specsByIni.end(), ToUtf8(entry.second));
            continue;
        }
        HF_FUZZ_CHECK(found != watcher.State().specsByIni.end(), ToUtf8(entry.second));
        HotFolderSpec const& loaded = **found;
        HF_FUZZ_CHECK(loaded.DesktopIniPath == fresh.DesktopIniPath && loaded.InputFolder == fresh.InputFolder &&
                          loaded.OutputFolder == fresh.OutputFolder && loaded.Script == fresh.Script,
                      ToUtf8(entry.second));
    }
}

struct Completion {
    DWORD error = 0;
    DWORD count = 0;
    std::string_view bytes;
};

// Completes the watch's read and checks what its routine did. Runs as a
// completion of its own, so nothing else runs between the two.
void CompleteAndCheck(WatcherUnderTest& watcher, DirectoryWatch* watch, Completion const& completion)
{
    auto const handle = HandleOf(*watch);
    HANDLE const directory = watch->directory.get();
    bool const isRoot = watch == &watcher.Root();
    std::u16string const path = watch->path;
    DWORD const useCount = watch->useCount;
    bool const holdsRecords = watch->holdsRecords;
    std::size_t const firstEvent = sim::TheWorld().eventLog.Records().size();
    std::vector<PendingFile> before;
    for (auto const& file : watcher.State().pending) {
        before.push_back(file);
    }

    handle->CompleteWith(completion.error, completion.bytes, completion.count);

    std::vector<sim::EventRecord> const events = EventsSince(firstEvent);
    if (completion.error != 0) {
        HF_FUZZ_CHECK(events.size() == 1 && IsReport(events[0], EVENTLOG_ERROR_TYPE, MSG_OVERLAPPED_CALLBACK_ERROR,
                                                     {path, DecimalText(static_cast<std::int32_t>(completion.error))}),
                      "an error is one message 37");
        HF_FUZZ_CHECK(handle->OutstandingReads() == 0, "a watch whose read failed reads no more");
        return;
    }
    if (!isRoot && useCount == 0) {
        HF_FUZZ_CHECK(events.empty(), "an unused watch ends without a report");
        HF_FUZZ_CHECK(!sim::TheWorld().Lookup(directory), "an unused watch closes its directory");
        for (auto const& entry : watcher.State().watches) {
            HF_FUZZ_CHECK(entry.second != watch, "an ended watch leaves the table");
        }
        return;
    }
    std::vector<Expected> const records =
        completion.count != 0 || holdsRecords ? RecordsOf(watch->buffer, kChangeBufferSize) : std::vector<Expected>{};
    std::vector<sim::EventRecord> reports;
    std::copy_if(events.begin(), events.end(), std::back_inserter(reports), IsRecordReport);
    HF_FUZZ_CHECK(reports.size() == records.size(),
                  std::to_string(reports.size()) + " reports of " + std::to_string(records.size()) + " records");
    for (std::size_t i = 0; i < records.size(); ++i) {
        auto const [id, type] = ReportOf(records[i].action);
        HF_FUZZ_CHECK(IsReport(reports[i], type, id, {path, AsEventString(records[i].name)}),
                      "record " + std::to_string(i) + ": " + Describe(reports[i]));
    }
    HF_FUZZ_CHECK(handle->OutstandingReads() == 1, "a completion without error issues the next read");
    if (isRoot) {
        CheckSettingsAfter(watcher, records);
    } else {
        CheckPendingAfter(watcher, *watch, records, before);
    }
}

void DeliverCompletion(FreshMachine& machine, WatcherUnderTest& watcher, FuzzInput& input, BYTE op)
{
    std::vector<DirectoryWatch*> const watches = watcher.Watches();
    DirectoryWatch* const watch = watches[input.Byte() % watches.size()];
    Completion completion;
    completion.error = (op & 0x10) != 0 ? input.Dword() : 0;
    completion.count = input.Dword();
    if (completion.error == 0 && completion.count != 0) {
        completion.bytes = input.Bytes(input.Word());
    }
    auto const handle = HandleOf(*watch);
    if (!handle || handle->OutstandingReads() == 0) {
        return;  // nothing that the system could complete
    }
    sim::TheWorld().QueueApc([&watcher, watch, completion] { CompleteAndCheck(watcher, watch, completion); });
    machine.RunCompletions();
}

void ChangeByUser(BYTE what, BYTE which)
{
    sim::FileSystem& files = sim::TheWorld().files;
    std::u16string const& folder = kFolders[which % std::size(kFolders)];
    std::size_t const nameIndex = (which / std::size(kFolders)) % std::size(kFileNames);
    std::u16string const file = JoinPath(folder, kFileNames[nameIndex]);
    std::u16string const renamed = JoinPath(folder, kFileNames[(nameIndex + 1) % std::size(kFileNames)]);
    std::u16string const desktopIni = DesktopIniOf(which % kHotFolderCount);
    switch (what % 6) {
        case 0:
            files.WriteFile(desktopIni, IniVariants()[(which / kHotFolderCount) % IniVariants().size()]);
            break;
        case 1:
            if (files.Exists(desktopIni)) {
                files.Delete(desktopIni);
            }
            break;
        case 2:
            if (!files.IsDirectory(file)) {
                files.WriteFile(file, "%PDF-1.4");
            }
            break;
        case 3:
            if (files.Exists(file) && !files.IsDirectory(file)) {
                files.Delete(file);
            }
            break;
        case 4:
            if (files.Exists(file) && !files.IsDirectory(file) && !files.Exists(renamed)) {
                files.Rename(file, renamed);
            }
            break;
        default:
            files.LoseChanges(folder);
            break;
    }
}

}  // namespace
}  // namespace hf::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace hf::fuzz;
    FuzzInput input(data, size);
    FreshMachine machine;
    ArrangeMachine(input.Byte());
    WatcherUnderTest watcher;
    machine.RunCompletions();
    watcher.CheckTables();
    while (!input.Empty()) {
        hf::BYTE const op = input.Byte();
        switch (op % 4) {
            case 0:
            case 1:
                DeliverCompletion(machine, watcher, input, op);
                break;
            case 2: {
                hf::BYTE const what = input.Byte();
                ChangeByUser(what, input.Byte());
                machine.RunCompletions();
                break;
            }
            default:
                hf::sim::TheWorld().Advance(input.Word());
                machine.RunCompletions();
                break;
        }
        watcher.CheckTables();
    }
    return 0;
}
