// Fuzz target: a hot folder's settings. Any hot folder path and any Desktop.ini
// bytes, read back through the simulated profile reader, go through the
// product's handling of the values it returns: LoadHotFolderSpec with its
// 260-character buffers, the joins and canonicalisation of its paths, and
// LoadHotFolder and RemoveHotFolder with the watches they take and release.
//
// The input: a byte of flags (bit 0: the path is UTF-8, else UTF-16
// little-endian; bit 1: it names a folder below the root, else it is the hot
// folder's path as it stands), the path's length in bytes (word) and the path,
// the first Desktop.ini's length (word) and bytes, and the rest of the input:
// the Desktop.ini that replaces it.
//
// The hot folder is loaded with its first Desktop.ini, reloaded with the
// second, and reloaded once its file is gone; after each the rules are
// checked: the loader is true exactly when all three keys have values; it
// reads no key after the first without one; it keeps the Desktop.ini path as
// it was given; each value is resolved against the hot folder's directory when
// relative and canonicalised when that fits; the tables hold the hot folder,
// with those values, exactly when the loader is true; a loaded hot folder's
// input folder has a watch, unless opening it was reported (message 35); and
// once the hot folder is gone the tables are empty and the root's use count is
// back to its own 1.
#include "FuzzInput.h"
#include "FuzzSupport.h"
#include "WatcherUnderTest.h"
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Files.h"
#include "platform/Paths.h"
#include "platform/sim/SimWorld.h"
#include "watcher/HotFolderSpec.h"
#include "watcher/HotFolderTree.h"
#include "watcher/PathRules.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <stdexcept>

namespace hf::fuzz {
namespace {

constexpr char16_t kRoot[] = u"C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders";
char16_t const* const kKeys[] = {u"InputFolder", u"OutputFolder", u"Script"};

// Directories that a value may name, so that some input folders can be watched.
void ArrangeMachine()
{
    for (auto const* folder : {u"D:\\In", u"C:\\Scans", kRoot}) {
        sim::TheWorld().files.MakeDirectory(folder);
    }
    sim::TheWorld().files.MakeDirectory(JoinPath(kRoot, u"Invoices\\In"));
}

// Puts the file where the path says, if the machine can hold a file there.
void WriteIfPossible(std::u16string const& path, std::string_view bytes)
{
    try {
        sim::TheWorld().files.WriteFile(path, std::string(bytes));
    } catch (std::invalid_argument const&) {
        // Not a path the file system takes: the hot folder's Desktop.ini is missing.
    }
}

std::u16string DirectoryOf(std::u16string const& path)
{
    std::u16string directory = path;
    os::PathRemoveFileSpecW(directory.data());
    return std::u16string(directory.c_str());
}

// A value as the hot folder's rules resolve it.
std::u16string Resolved(std::u16string const& baseDirectory, std::u16string const& value)
{
    std::u16string const joined = os::PathIsRelativeW(value.c_str()) ? JoinPath(baseDirectory, value) : value;
    WCHAR canonical[os::kMaxPath] = {};
    return os::PathCanonicalizeW(canonical, joined.c_str()) ? std::u16string(canonical) : joined;
}

std::u16string ReadValue(std::u16string const& desktopIniPath, char16_t const* key)
{
    WCHAR value[os::kMaxPath] = {};
    os::GetPrivateProfileStringW(u"Tarnwick", key, u"", value, static_cast<DWORD>(os::kMaxPath),
                                 desktopIniPath.c_str());
    return value;
}

// The loader's rules for the Desktop.ini as it now is; returns the HotFolderSpec it loads.
HotFolderSpec CheckLoader(WatcherUnderTest& watcher, std::u16string const& desktopIniPath, bool& complete)
{
    HotFolderSpec spec;
    complete = LoadHotFolderSpec(watcher.Events(), desktopIniPath, spec);
    HF_FUZZ_CHECK(spec.DesktopIniPath == desktopIniPath, "the Desktop.ini path is kept as given");
    std::u16string* const fields[] = {&spec.InputFolder, &spec.OutputFolder, &spec.Script};
    std::u16string const baseDirectory = DirectoryOf(desktopIniPath);
    bool allFound = true;
    for (std::size_t i = 0; i < std::size(kKeys); ++i) {
        std::u16string const value = allFound ? ReadValue(desktopIniPath, kKeys[i]) : std::u16string();
        if (!allFound || value.empty()) {
            HF_FUZZ_CHECK(fields[i]->empty(), ToUtf8(*fields[i]));
            allFound = false;
            continue;
        }
        HF_FUZZ_CHECK(*fields[i] == Resolved(baseDirectory, value), ToUtf8(value) + " -> " + ToUtf8(*fields[i]));
    }
    HF_FUZZ_CHECK(complete == allFound, "complete exactly when all three keys have values");
    return spec;
}

// LoadHotFolder as a change record of the Desktop.ini leads to it, and the
// tables after it and the completions it caused.
void LoadAndCheck(FreshMachine& machine, WatcherUnderTest& watcher, std::u16string const& desktopIniPath)
{
    machine.RunCompletions();
    bool complete = false;
    HotFolderSpec const expected = CheckLoader(watcher, desktopIniPath, complete);
    std::size_t const firstEvent = sim::TheWorld().eventLog.Records().size();
    LoadHotFolder(desktopIniPath, watcher.State());
    std::vector<sim::EventRecord> const events = EventsSince(firstEvent);
    machine.RunCompletions();
    watcher.CheckTables();

    auto probe = boost::make_shared<HotFolderSpec>();
    probe->DesktopIniPath = desktopIniPath;
    auto const found = watcher.State().specsByIni.find(probe);
    if (!complete) {
        HF_FUZZ_CHECK(found == watcher.State().specsByIni.end(), "an incomplete hot folder is not in the tables");
        return;
    }
    HF_FUZZ_CHECK(found != watcher.State().specsByIni.end(), "a complete hot folder is in the tables");
    HotFolderSpec const& loaded = **found;
    HF_FUZZ_CHECK(loaded.DesktopIniPath == desktopIniPath && loaded.InputFolder == expected.InputFolder &&
                      loaded.OutputFolder == expected.OutputFolder && loaded.Script == expected.Script,
                  "the tables hold the values as loaded");
    bool const openReported = std::any_of(events.begin(), events.end(), [&](sim::EventRecord const& record) {
        return record.eventId == MSG_OPEN_FOLDER_FAILED && !record.strings.empty() &&
               record.strings[0] == std::u16string(loaded.InputFolder.c_str());
    });
    HF_FUZZ_CHECK(watcher.State().watches.count(loaded.InputFolder) != 0 || openReported,
                  "the input folder " + ToUtf8(loaded.InputFolder) + " is watched or its failure reported");
}

}  // namespace
}  // namespace hf::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace hf;
    using namespace hf::fuzz;
    FuzzInput input(data, size);
    BYTE const flags = input.Byte();
    std::u16string const text = input.Text(input.Word(), (flags & 1) != 0);
    std::u16string const folder = (flags & 2) != 0 ? JoinPath(kRoot, text) : text;
    std::u16string const desktopIniPath = JoinPath(folder, u"Desktop.ini");
    std::string_view const first = input.Bytes(input.Word());
    std::string_view const second = input.Bytes(input.Left());

    FreshMachine machine;
    ArrangeMachine();
    WriteIfPossible(desktopIniPath, first);
    WatcherUnderTest watcher;
    LoadAndCheck(machine, watcher, desktopIniPath);

    if (sim::TheWorld().files.Exists(desktopIniPath)) {
        WriteIfPossible(desktopIniPath, second);
    }
    LoadAndCheck(machine, watcher, desktopIniPath);

    if (sim::TheWorld().files.Exists(desktopIniPath) && !sim::TheWorld().files.IsDirectory(desktopIniPath)) {
        sim::TheWorld().files.Delete(desktopIniPath);
    }
    LoadAndCheck(machine, watcher, desktopIniPath);
    HF_FUZZ_CHECK(watcher.State().specsByIni.empty(),
                  "no hot folder is left once its Desktop.ini is gone: " +
                      ToUtf8((*watcher.State().specsByIni.begin())->DesktopIniPath));
    HF_FUZZ_CHECK(watcher.Root().useCount == 1, "the root's use count is back to its own use");
    return 0;
}
