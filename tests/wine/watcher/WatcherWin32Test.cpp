// The watcher's settings, directory watches and pending files on the win32
// backend, against real directories: Desktop.ini read by the system's profile
// reader, change records delivered by ReadDirectoryChangesW into an alertable
// wait, wake-up files made by GetTempFileNameW and deleted on close.
//
// Wine reports no changes in subfolders that existed before a recursive watch
// was armed, so the stories create the hot folders after the root's watch
// starts, and keep their input folders outside the root.
#include "EventReporter.h"
#include "RealSystem.h"
#include "WideText.h"
#include "platform/Clock.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Sync.h"
#include "platform/UniqueHandle.h"
#include "watcher/DirectoryWatch.h"
#include "watcher/HotFolderSpec.h"
#include "watcher/HotFolderTree.h"
#include "watcher/HotFolderWatcher.h"
#include "watcher/PathRules.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace hf {
namespace {

using test::RunningUnderWine;
using test::Utf16;

// A fresh folder under the temporary folder for each test, removed at the end.
class RealFolders : public ::testing::Test {
protected:
    void SetUp() override
    {
        static int serial = 0;
        std::filesystem::path const folder =
            std::filesystem::temp_directory_path() /
            ("hf-watcher-" + std::to_string(os::GetTickCount()) + "-" + std::to_string(++serial));
        std::filesystem::create_directories(folder);
        base_ = Utf16(folder.wstring());
        wakeEvent_.reset(os::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        ASSERT_TRUE(wakeEvent_.valid());
    }
    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(std::filesystem::path(test::Wide(base_)), ignored);
    }

    std::u16string Path(std::u16string const& relative) const { return JoinPath(base_, relative); }

    void MakeFolder(std::u16string const& relative)
    {
        ASSERT_TRUE(os::CreateDirectoryW(Path(relative).c_str(), nullptr)) << os::GetLastError();
    }

    void WriteBytes(std::u16string const& relative, std::string const& bytes)
    {
        UniqueFileHandle file(os::CreateFileW(Path(relative).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(file.valid()) << os::GetLastError();
        DWORD written = 0;
        ASSERT_TRUE(os::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    }

    void WriteUnicode(std::u16string const& relative, std::u16string const& text)
    {
        std::string bytes = "\xFF\xFE";
        for (char16_t c : text) {
            bytes += static_cast<char>(c & 0xFF);
            bytes += static_cast<char>(c >> 8);
        }
        WriteBytes(relative, bytes);
    }

    // Waits alertably, letting completion routines run, until `done` holds or five seconds pass.
    bool RunCompletionsUntil(std::function<bool()> const& done)
    {
        DWORD const start = os::GetTickCount();
        HANDLE handles[] = {wakeEvent_.get()};
        while (!done()) {
            if (os::GetTickCount() - start > 5000) {
                return false;
            }
            os::WaitForMultipleObjectsEx(1, handles, FALSE, 50, TRUE);
        }
        return true;
    }

    std::u16string base_;
    UniqueKernelHandle wakeEvent_;
};

// --- the change read itself -------------------------------------------------------------

struct RawRead {
    OVERLAPPED overlapped{};
    alignas(DWORD) BYTE buffer[4096];
    std::vector<std::pair<DWORD, std::u16string>> records;
    DWORD error = 0;
    bool completed = false;

    static void Completed(DWORD error, DWORD bytes, OVERLAPPED* overlapped)
    {
        auto& read = *reinterpret_cast<RawRead*>(overlapped);
        read.completed = true;
        read.error = error;
        ChangeRecordWalk walk(read.buffer, bytes);
        for (ChangeRecord record; walk.Next(record);) {
            read.records.emplace_back(record.Action, record.FileName);
        }
    }
};

TEST_F(RealFolders, AFileCreatedInAWatchedFolderGivesAnAddedRecordInTheAlertableWait)
{
    MakeFolder(u"In");
    UniqueFileHandle directory(os::CreateFileW(Path(u"In").c_str(), FILE_LIST_DIRECTORY, 7, nullptr, OPEN_EXISTING,
                                               FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr));
    ASSERT_TRUE(directory.valid()) << os::GetLastError();
    auto read = std::make_unique<RawRead>();
    DWORD unused = 0;
    ASSERT_TRUE(os::ReadDirectoryChangesW(directory.get(), read->buffer, sizeof read->buffer, FALSE, kWatchFilter,
                                          &unused, &read->overlapped, &RawRead::Completed));

    WriteBytes(u"In\\report.pdf", "");

    ASSERT_TRUE(RunCompletionsUntil([&] { return read->completed; }));
    EXPECT_EQ(read->error, 0u);
    ASSERT_FALSE(read->records.empty());
    EXPECT_EQ(read->records[0].first, FILE_ACTION_ADDED);
    EXPECT_EQ(test::Wide(read->records[0].second), L"report.pdf");
}

// --- the watcher's state on real folders -----------------------------------------------

class RealWatcher : public RealFolders {
protected:
    void SetUp() override
    {
        RealFolders::SetUp();
        MakeFolder(u"Root");
        watcher.events = &events;
        watcher.rootWatch = root.get();
        root->path = Path(u"Root");
    }
    // Starts the root's watch of its subtree, as the tree's start-up does.
    void WatchRoot()
    {
        ASSERT_TRUE(OpenDirectoryWatch(root->path, *root, watcher));
        ASSERT_TRUE(ArmDirectoryWatch(*root, kWatchFilter, OnRootChange, false));
    }
    std::string HotFolderIni(std::u16string const& input)
    {
        return "[Tarnwick]\r\nInputFolder=" + ToUtf8(input) + "\r\nOutputFolder=..\\Out\r\nScript=C:\\s.py\r\n";
    }
    bool Pending(std::u16string const& path) const
    {
        for (auto const& file : watcher.pending) {
            if (PathIEquals(file.path, path)) {
                return true;
            }
        }
        return false;
    }

    EventReporter events{kCategoryUser};
    std::unique_ptr<DirectoryWatch> root = std::make_unique<DirectoryWatch>();
    HotFolderWatcher watcher;
};

TEST_F(RealWatcher, AFileCreatedInAnInputFolderIsWalkedAndBecomesPending)
{
    MakeFolder(u"In");
    MakeFolder(u"Root\\Invoices");
    WriteBytes(u"Root\\Invoices\\Desktop.ini", HotFolderIni(Path(u"In")));
    LoadHotFolder(Path(u"Root\\Invoices\\Desktop.ini"), watcher);
    ASSERT_EQ(watcher.specsByIni.size(), 1u);
    auto const entry = watcher.watches.find(Path(u"In"));
    ASSERT_NE(entry, watcher.watches.end());
    ASSERT_NE(entry->second, root.get());
    EXPECT_EQ(entry->second->useCount, 1u);

    DWORD const before = os::GetTickCount();
    WriteBytes(u"In\\report.pdf", "%PDF-1.4");

    ASSERT_TRUE(RunCompletionsUntil([&] { return Pending(Path(u"In\\report.pdf")); }));
    EXPECT_EQ(watcher.pending.Size(), 1u);
    EXPECT_LE(watcher.pending.Front().lastTouched - before, 5000u);
    EXPECT_TRUE(watcher.pending.Front().dispatchedTo.empty());
    EXPECT_TRUE(entry->second->holdsRecords) << "the read completed with records and was issued again";
}

TEST_F(RealWatcher, ADesktopIniWrittenAndDeletedUnderTheWatchedRootAddsAndEndsAHotFolder)
{
    MakeFolder(u"In");
    WatchRoot();
    MakeFolder(u"Root\\Invoices");  // made after the root's watch began, so Wine reports inside it
    WriteBytes(u"Root\\Invoices\\Desktop.ini", HotFolderIni(Path(u"In")));

    ASSERT_TRUE(RunCompletionsUntil([&] { return watcher.watches.count(Path(u"In")) == 1; }));
    EXPECT_EQ(watcher.specsByInput.size(), 1u);

    WriteBytes(u"In\\scan.pdf", "%PDF");
    ASSERT_TRUE(RunCompletionsUntil([&] { return Pending(Path(u"In\\scan.pdf")); }));

    // The last hot folder goes: its watch is woken by a temporary file and ends in its completion.
    ASSERT_TRUE(std::filesystem::remove(std::filesystem::path(test::Wide(Path(u"Root\\Invoices\\Desktop.ini")))));
    ASSERT_TRUE(RunCompletionsUntil([&] { return watcher.watches.count(Path(u"In")) == 0; }));
    EXPECT_TRUE(watcher.specsByIni.empty());
    std::size_t leftovers = 0;
    for (auto const& item : std::filesystem::directory_iterator(std::filesystem::path(test::Wide(Path(u"In"))))) {
        leftovers += item.path().extension() == L".TMP" || item.path().extension() == L".tmp" ? 1 : 0;
    }
    EXPECT_EQ(leftovers, 0u) << "the wake-up file deleted itself on close";
}

// --- the settings and path rules on the system's own functions ---------------------------

TEST_F(RealFolders, TheSystemsProfileReaderAndPathFunctionsResolveDesktopIniAsTheSimDoes)
{
    struct {
        const char* story;
        std::string text;
        bool loads;
        std::u16string input;
        std::u16string output;
        std::u16string script;
    } const cases[] = {
        {"relative, parent and absolute",
         "[Tarnwick]\r\nInputFolder=In\r\nOutputFolder=..\\Done\r\nScript=D:\\s.py\r\n", true, u"Invoices\\In", u"Done",
         u"D:\\s.py"},
        {"case of names, blanks, quotes",
         "[tarnwick]\r\n  INPUTFOLDER = \"My In\" \r\noutputfolder='Out'\r\nscript=s.py\r\n", true, u"Invoices\\My In",
         u"Invoices\\Out", u"Invoices\\s.py"},
        {"root-relative stays", "[Tarnwick]\r\nInputFolder=In\r\nOutputFolder=Out\r\nScript=\\Scripts\\a.py\r\n", true,
         u"Invoices\\In", u"Invoices\\Out", u"\\Scripts\\a.py"},
        {"broken lines",
         "junk\r\n[Tarnwick]\r\nno equals\r\n[Unclosed\r\nInputFolder=In\r\nOutputFolder=Out\r\nScript=s\r\n", true,
         u"Invoices\\In", u"Invoices\\Out", u"Invoices\\s"},
        {"no OutputFolder", "[Tarnwick]\r\nInputFolder=In\r\nScript=s.py\r\n", false, u"Invoices\\In", u"", u""},
        {"only the first section of the name",
         "[Tarnwick]\r\nInputFolder=In\r\nOutputFolder=Out\r\n[Other]\r\n[Tarnwick]\r\nScript=s.py\r\n", false,
         u"Invoices\\In", u"Invoices\\Out", u""},
        {"blanks in the header, text after it, equals in a value",
         "[ Tarnwick ] note\r\nInputFolder=a=b\r\nOutputFolder=Out\r\nScript=s.py\r\n[Tarnwick]]\r\nScript=x\r\n", true,
         u"Invoices\\a=b", u"Invoices\\Out", u"Invoices\\s.py"},
        {"a key line without a value", "[Tarnwick]\r\nInputFolder\r\nOutputFolder=Out\r\nScript=s.py\r\n", false, u"",
         u"", u""},
        {"no InputFolder", "[Tarnwick]\r\nOutputFolder=Out\r\nScript=s.py\r\n", false, u"", u"", u""},
    };
    MakeFolder(u"Invoices");
    EventReporter events(kCategoryUser);
    auto expected = [&](std::u16string const& value) {
        return value.empty() || value[0] == u'\\' || (value.size() > 1 && value[1] == u':') ? value : Path(value);
    };
    for (auto const& c : cases) {
        WriteBytes(u"Invoices\\Desktop.ini", c.text);
        HotFolderSpec spec;
        EXPECT_EQ(LoadHotFolderSpec(events, Path(u"Invoices\\Desktop.ini"), spec), c.loads) << c.story;
        EXPECT_EQ(test::Wide(spec.InputFolder), test::Wide(expected(c.input))) << c.story;
        EXPECT_EQ(test::Wide(spec.OutputFolder), test::Wide(expected(c.output))) << c.story;
        EXPECT_EQ(test::Wide(spec.Script), test::Wide(expected(c.script))) << c.story;
    }

    WriteUnicode(u"Invoices\\Desktop.ini", u"[Tarnwick]\r\nInputFolder=Eingänge\r\nOutputFolder=Δ\r\nScript=s.py\r\n");
    HotFolderSpec unicode;
    ASSERT_TRUE(LoadHotFolderSpec(events, Path(u"Invoices\\Desktop.ini"), unicode));
    EXPECT_EQ(test::Wide(unicode.InputFolder), test::Wide(Path(u"Invoices\\Eingänge")));

    // A value cut to 259 characters and joined no longer fits a path buffer: it stays as joined.
    std::string const longValue = "x\\..\\" + std::string(300, 'b');
    WriteBytes(u"Invoices\\Desktop.ini",
               "[Tarnwick]\r\nInputFolder=" + longValue + "\r\nOutputFolder=Out\r\nScript=s.py\r\n");
    HotFolderSpec tooLong;
    ASSERT_TRUE(LoadHotFolderSpec(events, Path(u"Invoices\\Desktop.ini"), tooLong));
    EXPECT_EQ(test::Wide(tooLong.InputFolder), test::Wide(Path(u"Invoices\\" + Widen(longValue.substr(0, 259)))));

    WriteBytes(u"Invoices\\Desktop.ini", "[Tarnwick]\r\nInputFolder=.\r\nOutputFolder=Out\r\nScript=s.py\r\n");
    HotFolderSpec dot;
    ASSERT_TRUE(LoadHotFolderSpec(events, Path(u"Invoices\\Desktop.ini"), dot));
    if (RunningUnderWine()) {
        // Wine's PathCanonicalizeW keeps a trailing "\." that Windows removes.
        EXPECT_EQ(test::Wide(dot.InputFolder), test::Wide(Path(u"Invoices\\.")));
    } else {
        EXPECT_EQ(test::Wide(dot.InputFolder), test::Wide(Path(u"Invoices")));
    }
}

TEST(PathRulesOnTheSystem, TheLinguisticOrderIgnoresCaseAndTheConfirmationFoldsOnlyAToZ)
{
    EXPECT_FALSE(PathLess(u"C:\\Hot\\A", u"c:\\hot\\a"));
    EXPECT_FALSE(PathLess(u"c:\\hot\\a", u"C:\\Hot\\A"));
    EXPECT_TRUE(PathIEquals(u"C:\\Hot\\A", u"c:\\hot\\a"));
    EXPECT_FALSE(PathLess(u"C:\\Ä", u"C:\\ä"));
    EXPECT_FALSE(PathLess(u"C:\\ä", u"C:\\Ä"));
    EXPECT_FALSE(PathIEquals(u"C:\\Ä", u"C:\\ä"));
    EXPECT_TRUE(PathLess(u"C:\\a", u"C:\\a\\x"));
    EXPECT_TRUE(PathLess(u"C:\\a", u"C:\\b"));
    EXPECT_TRUE(IsSettingsChange(u"Invoices\\desktop.INI"));
    EXPECT_FALSE(IsSettingsChange(u"Invoices\\In\\Desktop.ini"));
}

}  // namespace
}  // namespace hf
