// The hot folder tree: its start-up, then each Desktop.ini change loading,
// moving, dropping or restoring a hot folder and its watch.
#include "WatcherTest.h"

namespace hf::test {
namespace {

std::string const kWatching = "Watching for changes to the root hot folder directory %s.\r\n";
std::string const kNotWatched = "Failed to watch the root hot folder directory %s.\r\n";

struct StartCase {
    const char* fails;
    DWORD error;
    TreeStart start;
    std::string events;  // every report, rendered, one after the other
    friend void PrintTo(StartCase const& c, std::ostream* os) { *os << c.fails; }
};

// Start-up makes a missing root and loads its hot folders; a failing step is
// reported as an error and ends the start (an unreadable listing only loads
// nothing). Messages 59 and 60 keep their %s: the path is an insertion string.
StartCase const kStartCases[] = {
    {"none", 0, TreeStart::Watching, kWatching},
    {"FindFirstFileW", 5, TreeStart::Watching, kWatching},
    {"CreateDirectoryW", 5, TreeStart::NoRootFolder,
     "Failed to create user's hot folder folder " + kRoot8 + ".  Error code: 5\r\n"},
    {"CreateFileW", 5, TreeStart::RootNotWatched,
     "Failed to open user's hot folder folder " + kRoot8 + ".  Error code: 5\r\n" + kNotWatched},
    {"ReadDirectoryChangesW", 87, TreeStart::RootNotWatched,
     "ReadDirectoryChangesW(" + kRoot8 + ") failed.  Error code: 87\r\n" + kNotWatched},
};

class TreeStartUp : public WatcherTest, public ::testing::WithParamInterface<StartCase> {};

TEST_P(TreeStartUp, MakesTheRootOrReportsTheFailingStep)
{
    StartCase const& c = GetParam();
    bool const watching = c.start == TreeStart::Watching;
    if (c.start != TreeStart::NoRootFolder) {
        WriteHotFolder(u"Invoices", "In");
    }
    world().faults.Fail(c.fails, c.error);
    EXPECT_EQ(Start(), c.start);
    std::string rendered;
    for (auto const& record : world().eventLog.Records()) {
        EXPECT_EQ(record.type, watching ? EVENTLOG_INFORMATION_TYPE : EVENTLOG_ERROR_TYPE);
        rendered += U8(sim::EventLog::Render(record));
    }
    EXPECT_EQ(rendered, c.events);
    EXPECT_EQ(EventsWithId(watching ? MSG_WATCHING_ROOT : MSG_WATCH_ROOT_FAILED),
              c.start == TreeStart::NoRootFolder ? Texts{} : Texts{kRoot8});
    EXPECT_EQ(LoadedHotFolders().size(), watching && c.error == 0 ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, TreeStartUp, ::testing::ValuesIn(kStartCases));

class HotFolderTreeTest : public WatcherTest {};

// Start-up loads the complete hot folders one level below the root (any case
// of Desktop.ini). The root's watch serves each input folder at or below the
// root, matched ignoring case (and a sibling named like the root, which it never
// sees), and keeps their entries when their hot folders go; other input folders
// get watches of their own. Only input folders' files become pending.
TEST_F(HotFolderTreeTest, StartUpLoadsTheFirstLevelAndTheRootWatchServesBelowIt)
{
    std::u16string const sibling = std::u16string(kRoot) + u" Archive";
    world().files.MakeDirectory(sibling);
    world().files.MakeDirectory(u"D:\\Letters\\In");
    WriteHotFolder(u"Invoices", "In");
    WriteHotFolder(u"Letters", "D:\\Letters\\In");
    WriteHotFolder(u"Old", U8(sibling));
    world().files.WriteFile(InRoot(u"Lower\\desktop.ini"),
                            Ini("c:\\users\\clerk\\appdata\\local\\tarnwick hot folders\\lower\\in"));
    world().files.WriteFile(InRoot(u"Incomplete\\Desktop.ini"), "[Tarnwick]\r\nInputFolder=In\r\n");
    world().files.WriteFile(InRoot(u"Invoices\\Nested\\Desktop.ini"), Ini("D:\\Nested"));
    world().files.WriteFile(InRoot(u"Desktop.ini"), Ini("D:\\Root"));
    ASSERT_EQ(Start(), TreeStart::Watching);

    EXPECT_EQ(LoadedHotFolders(), (Texts{kRoot8 + "\\Invoices\\Desktop.ini", kRoot8 + "\\Letters\\Desktop.ini",
                                         kRoot8 + "\\Lower\\Desktop.ini", kRoot8 + "\\Old\\Desktop.ini"}));
    for (auto const& below : {InRoot(u"Invoices\\In"), InRoot(u"Lower\\In"), sibling}) {
        EXPECT_EQ(WatchOf(below), rootWatch.get()) << U8(below);
    }
    EXPECT_EQ(rootWatch->useCount, 4u) << "its own use and three input folders";
    DirectoryWatch* const letters = WatchOf(u"D:\\Letters\\In");
    ASSERT_TRUE(letters != nullptr && letters != rootWatch.get());

    world().files.WriteFile(InRoot(u"Invoices\\In\\report.pdf"), "");
    world().files.WriteFile(InRoot(u"loose.txt"), "");
    world().files.WriteFile(InRoot(u"Desktop.ini"), Ini("D:\\x"));
    world().files.WriteFile(InRoot(u"Invoices\\notes.txt"), "");
    world().files.WriteFile(sibling + u"\\old.pdf", "");
    world().files.Delete(InRoot(u"Invoices\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(EventsWithId(MSG_FILE_REMOVED), (Texts{kRoot8 + "|Invoices\\Desktop.ini"}));
    EXPECT_EQ(PendingPaths(), (Texts{kRoot8 + "\\Invoices\\In\\report.pdf"}));
    EXPECT_EQ(rootWatch->useCount, 3u);
    EXPECT_EQ(WatchOf(InRoot(u"Invoices\\In")), rootWatch.get()) << "the entry stays";

    WriteHotFolder(u"Invoices", "In");
    RunCompletions();
    EXPECT_EQ(rootWatch->useCount, 4u);

    WriteHotFolder(u"Everything", "..");  // the root itself: its loose files become jobs
    world().files.WriteFile(InRoot(u"loose.txt"), "again");
    RunCompletions();
    EXPECT_EQ(WatchOf(kRoot), rootWatch.get());
    EXPECT_EQ(PendingPaths(), (Texts{kRoot8 + "\\Invoices\\In\\report.pdf", kRoot8 + "\\loose.txt"}));
}

// Desktop.ini files written, edited to move an input folder (to a missing one:
// message 35, loaded without a watch), stripped of a key, renamed away and
// back, deleted: the hot folders follow, with their use-counted watches.
TEST_F(HotFolderTreeTest, TheLifeOfTwoHotFoldersOnOneFolder)
{
    StartOn({});
    std::size_t const handles = world().OpenHandleCount();

    WriteHotFolder(u"Invoices", "D:\\In");
    WriteHotFolder(u"Archive", "D:\\In");
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders(), (Texts{kRoot8 + "\\Archive\\Desktop.ini", kRoot8 + "\\Invoices\\Desktop.ini"}));
    DirectoryWatch* const shared = WatchOf(u"D:\\In");
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(shared->useCount, 2u);

    WriteHotFolder(u"Invoices", "D:\\Elsewhere");
    RunCompletions();
    EXPECT_EQ(WatchOf(u"D:\\In"), shared);
    EXPECT_EQ(shared->useCount, 1u);
    EXPECT_NE(WatchOf(u"D:\\Elsewhere"), nullptr);

    world().files.Delete(InRoot(u"Archive\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(WatchOf(u"D:\\In"), nullptr);

    WriteHotFolder(u"Invoices", "D:\\Missing");
    world().files.Touch(InRoot(u"Invoices\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders().size(), 1u);
    EXPECT_TRUE(watcher.watches.empty());
    EXPECT_EQ(EventsWithId(MSG_OPEN_FOLDER_FAILED), (Texts(2, "D:\\Missing|2")));

    world().files.WriteFile(InRoot(u"Invoices\\Desktop.ini"), "[Tarnwick]\r\nInputFolder=D:\\In\r\nScript=s.py\r\n");
    RunCompletions();
    EXPECT_TRUE(LoadedHotFolders().empty()) << "a key missing";
    EXPECT_EQ(world().OpenHandleCount(), handles);

    WriteHotFolder(u"Invoices", "D:\\In");
    world().files.Rename(InRoot(u"Invoices\\Desktop.ini"), InRoot(u"Invoices\\Desktop.old"));
    RunCompletions();
    EXPECT_TRUE(LoadedHotFolders().empty()) << "renamed away";
    world().files.Rename(InRoot(u"Invoices\\Desktop.old"), InRoot(u"Invoices\\DESKTOP.INI"));
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders(), (Texts{kRoot8 + "\\Invoices\\DESKTOP.INI"})) << "as the record spells it";
    EXPECT_EQ(WatchOf(u"D:\\In")->useCount, 1u);
}

}  // namespace
}  // namespace hf::test
