// The hot folder tree over its life: the root found or made at start-up, the
// hot folders discovered in it, and every later change of a Desktop.ini
// loading, moving, dropping or restoring a hot folder and its watch.
#include "WatcherTest.h"

namespace hf::test {
namespace {

class HotFolderTreeTest : public WatcherTest {};

TEST_F(HotFolderTreeTest, StartUpMakesAMissingRootAndFindsNoHotFolders)
{
    ASSERT_FALSE(world().files.Exists(kRoot));

    EXPECT_EQ(Start(), TreeStart::Watching);

    EXPECT_EQ(U8(rootPath), U8(kRoot));
    EXPECT_TRUE(world().files.IsDirectory(kRoot));
    EXPECT_TRUE(watcher.specsByIni.empty());
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_WATCHING_ROOT}));
    sim::EventRecord const watching = OnlyEvent(MSG_WATCHING_ROOT);
    EXPECT_EQ(watching.type, EVENTLOG_INFORMATION_TYPE);
    ASSERT_EQ(watching.strings.size(), 1u);
    EXPECT_EQ(U8(watching.strings[0]), U8(kRoot));
    EXPECT_EQ(RenderedEvents().back(), "Watching for changes to the root hot folder directory %s.\r\n")
        << "the text keeps its %s; the path travels as the insertion string only";
}

TEST_F(HotFolderTreeTest, StartUpDiscoversTheHotFoldersThatExist)
{
    WriteHotFolder(u"Invoices", "In");
    WriteHotFolder(u"Letters", "D:\\Letters\\In");
    world().files.MakeDirectory(u"D:\\Letters\\In");
    WriteHotFolder(u"Hidden", "D:\\Hidden");
    world().files.MakeDirectory(u"D:\\Hidden");
    world().files.SetAttributes(InRoot(u"Hidden"), 0x2 | 0x4);  // hidden, system
    world().files.WriteFile(InRoot(u"Lower\\desktop.ini"), DesktopIniText("In", "Out", "s.py"));
    world().files.WriteFile(InRoot(u"Incomplete\\Desktop.ini"), "[Tarnwick]\r\nInputFolder=In\r\n");
    world().files.WriteFile(InRoot(u"Invoices\\Nested\\Desktop.ini"), DesktopIniText("D:\\Nested", "Out", "s.py"));
    world().files.MakeDirectory(InRoot(u"Empty"));
    world().files.WriteFile(InRoot(u"Desktop.ini"), DesktopIniText("D:\\Root", "Out", "s.py"));

    ASSERT_EQ(Start(), TreeStart::Watching);

    EXPECT_EQ(LoadedHotFolders(),
              (std::vector<std::string>{U8(InRoot(u"Hidden\\Desktop.ini")), U8(InRoot(u"Invoices\\Desktop.ini")),
                                        U8(InRoot(u"Letters\\Desktop.ini")), U8(InRoot(u"Lower\\Desktop.ini"))}))
        << "first-level folders only, hidden ones included, a lower-case file found all the same";
    EXPECT_EQ(watcher.specsByInput.size(), 4u);
    EXPECT_EQ(WatchOf(InRoot(u"Invoices\\In")), rootWatch.get());
    EXPECT_EQ(WatchOf(InRoot(u"Lower\\In")), rootWatch.get());
    EXPECT_EQ(rootWatch->useCount, 3u) << "its own use and two input folders below the root";
    DirectoryWatch* letters = WatchOf(u"D:\\Letters\\In");
    ASSERT_NE(letters, nullptr);
    EXPECT_NE(letters, rootWatch.get());
    EXPECT_EQ(letters->useCount, 1u);
    EXPECT_EQ(U8(letters->path), "D:\\Letters\\In");
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_WATCHING_ROOT}));
}

TEST_F(HotFolderTreeTest, WhenTheShellFolderIsUnknownMessage34HasAnEmptyPath)
{
    world().faults.Fail("SHGetFolderPathW", ERROR_ACCESS_DENIED);

    EXPECT_EQ(Start(), TreeStart::NoRootFolder);

    EXPECT_TRUE(rootPath.empty());
    sim::EventRecord const failure = OnlyEvent(MSG_CREATE_ROOT_FAILED);
    EXPECT_EQ(failure.type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(RenderedEvents().back(), "Failed to create user's hot folder folder .  Error code: 5\r\n");
}

TEST_F(HotFolderTreeTest, WhenTheRootCannotBeMadeMessage34NamesIt)
{
    world().faults.Fail("CreateDirectoryW", ERROR_ACCESS_DENIED);

    EXPECT_EQ(Start(), TreeStart::NoRootFolder);

    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_CREATE_ROOT_FAILED}));
    EXPECT_EQ(RenderedEvents().back(),
              "Failed to create user's hot folder folder " + U8(kRoot) + ".  Error code: 5\r\n");
}

TEST_F(HotFolderTreeTest, ARootThatCannotBeOpenedReports35Then59)
{
    world().faults.Fail("CreateFileW", ERROR_ACCESS_DENIED);

    EXPECT_EQ(Start(), TreeStart::RootNotWatched);

    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_OPEN_FOLDER_FAILED, MSG_WATCH_ROOT_FAILED}));
    EXPECT_EQ(RenderedEvents()[0], "Failed to open user's hot folder folder " + U8(kRoot) + ".  Error code: 5\r\n");
    EXPECT_EQ(RenderedEvents()[1], "Failed to watch the root hot folder directory %s.\r\n");
    EXPECT_EQ(EventsWithId(MSG_WATCH_ROOT_FAILED), (std::vector<std::string>{U8(kRoot)}));
    EXPECT_EQ(OnlyEvent(MSG_WATCH_ROOT_FAILED).type, EVENTLOG_ERROR_TYPE);
}

TEST_F(HotFolderTreeTest, ARootThatCannotBeWatchedReports36Then59AndLoadsNoHotFolders)
{
    WriteHotFolder(u"Invoices", "In");
    world().faults.Fail("ReadDirectoryChangesW", ERROR_INVALID_PARAMETER);

    EXPECT_EQ(Start(), TreeStart::RootNotWatched);

    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_READ_DIRECTORY_CHANGES_FAILED, MSG_WATCH_ROOT_FAILED}));
    EXPECT_EQ(RenderedEvents()[0], "ReadDirectoryChangesW(" + U8(kRoot) + ") failed.  Error code: 87\r\n");
    EXPECT_TRUE(watcher.specsByIni.empty());
}

TEST_F(HotFolderTreeTest, AnUnreadableRootListingLoadsNothingSilentlyButLaterChangesAreSeen)
{
    world().files.MakeDirectory(u"D:\\In");
    WriteHotFolder(u"Invoices", "D:\\In");
    world().faults.Fail("FindFirstFileW", ERROR_ACCESS_DENIED);

    ASSERT_EQ(Start(), TreeStart::Watching);
    EXPECT_TRUE(watcher.specsByIni.empty());
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_WATCHING_ROOT}));

    world().files.Touch(InRoot(u"Invoices\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders(), (std::vector<std::string>{U8(InRoot(u"Invoices\\Desktop.ini"))}));
}

TEST_F(HotFolderTreeTest, ADesktopIniWrittenEditedDeletedAndRestored)
{
    world().files.MakeDirectory(u"D:\\In");
    world().files.MakeDirectory(u"D:\\Elsewhere");
    ASSERT_EQ(Start(), TreeStart::Watching);
    std::string const ini = U8(InRoot(u"Invoices\\Desktop.ini"));

    // Written: the folder becomes a hot folder with a watch on its input folder.
    WriteHotFolder(u"Invoices", "D:\\In");
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders(), (std::vector<std::string>{ini}));
    ASSERT_NE(WatchOf(u"D:\\In"), nullptr);
    EXPECT_EQ(WatchOf(u"D:\\In")->useCount, 1u);
    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED).front(), U8(kRoot) + "|Invoices\\Desktop.ini");

    // Edited with the input folder moved: the old watch ends, the new folder gets one.
    std::size_t const handlesBefore = world().OpenHandleCount();
    WriteHotFolder(u"Invoices", "D:\\Elsewhere");
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders(), (std::vector<std::string>{ini}));
    EXPECT_EQ(U8((*watcher.specsByIni.begin())->InputFolder), "D:\\Elsewhere");
    EXPECT_EQ(WatchOf(u"D:\\In"), nullptr);
    ASSERT_NE(WatchOf(u"D:\\Elsewhere"), nullptr);
    EXPECT_EQ(WatchOf(u"D:\\Elsewhere")->useCount, 1u);
    EXPECT_EQ(world().OpenHandleCount(), handlesBefore) << "one directory closed, one opened";
    EXPECT_TRUE(world().files.List(u"D:\\In").empty()) << "the wake-up file deleted itself";

    // Deleted: the hot folder and its watch are gone.
    world().files.Delete(InRoot(u"Invoices\\Desktop.ini"));
    RunCompletions();
    EXPECT_TRUE(watcher.specsByIni.empty());
    EXPECT_TRUE(watcher.specsByInput.empty());
    EXPECT_EQ(WatchOf(u"D:\\Elsewhere"), nullptr);
    EXPECT_EQ(world().OpenHandleCount(), handlesBefore - 1);

    // Restored: both come back.
    WriteHotFolder(u"Invoices", "D:\\Elsewhere");
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders(), (std::vector<std::string>{ini}));
    ASSERT_NE(WatchOf(u"D:\\Elsewhere"), nullptr);
    EXPECT_EQ(WatchOf(u"D:\\Elsewhere")->useCount, 1u);
}

TEST_F(HotFolderTreeTest, ADesktopIniThatLosesAKeyDropsTheHotFolder)
{
    world().files.MakeDirectory(u"D:\\In");
    WriteHotFolder(u"Invoices", "D:\\In");
    ASSERT_EQ(Start(), TreeStart::Watching);

    world().files.WriteFile(InRoot(u"Invoices\\Desktop.ini"), "[Tarnwick]\r\nInputFolder=D:\\In\r\nScript=s.py\r\n");
    RunCompletions();

    EXPECT_TRUE(watcher.specsByIni.empty());
    EXPECT_EQ(WatchOf(u"D:\\In"), nullptr);
    std::vector<DWORD> const ids = EventIds();
    EXPECT_TRUE(std::find(ids.begin(), ids.end(), MSG_KEY_NOT_FOUND_IN_INI) == ids.end()) << "silently";
}

TEST_F(HotFolderTreeTest, ADesktopIniRenamedAwayAndBackIsDroppedAndReloaded)
{
    world().files.MakeDirectory(u"D:\\In");
    WriteHotFolder(u"Invoices", "D:\\In");
    ASSERT_EQ(Start(), TreeStart::Watching);

    world().files.Rename(InRoot(u"Invoices\\Desktop.ini"), InRoot(u"Invoices\\Desktop.old"));
    RunCompletions();
    EXPECT_TRUE(watcher.specsByIni.empty());

    world().files.Rename(InRoot(u"Invoices\\Desktop.old"), InRoot(u"Invoices\\DESKTOP.INI"));
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders(), (std::vector<std::string>{U8(InRoot(u"Invoices\\DESKTOP.INI"))}))
        << "the hot folder is known by the path as the record spelled it";
}

TEST_F(HotFolderTreeTest, TwoHotFoldersOnOneOutsideFolderShareOneWatch)
{
    world().files.MakeDirectory(u"D:\\Shared");
    WriteHotFolder(u"Stamp", "D:\\Shared");
    WriteHotFolder(u"Archive", "D:\\Shared");
    ASSERT_EQ(Start(), TreeStart::Watching);
    std::size_t const handlesWithWatch = world().OpenHandleCount();

    DirectoryWatch* shared = WatchOf(u"D:\\Shared");
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(shared->useCount, 2u);
    EXPECT_EQ(watcher.watches.size(), 1u);
    EXPECT_EQ(watcher.specsByInput.size(), 2u);

    // Removing one keeps the watch.
    world().files.Delete(InRoot(u"Stamp\\Desktop.ini"));
    RunCompletions();
    ASSERT_EQ(WatchOf(u"D:\\Shared"), shared);
    EXPECT_EQ(shared->useCount, 1u);
    world().files.WriteFile(u"D:\\Shared\\a.pdf", "%PDF");
    RunCompletions();
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\Shared\\a.pdf"}));

    // Removing both ends it.
    world().files.Delete(InRoot(u"Archive\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(WatchOf(u"D:\\Shared"), nullptr);
    EXPECT_EQ(world().OpenHandleCount(), handlesWithWatch - 1);
    EXPECT_EQ(world().files.List(u"D:\\Shared"), (std::vector<std::u16string>{u"a.pdf"}));
}

TEST_F(HotFolderTreeTest, AnInputFolderBelowTheRootIsServedByTheRootWatch)
{
    WriteHotFolder(u"Invoices", "In");
    ASSERT_EQ(Start(), TreeStart::Watching);
    std::u16string const input = InRoot(u"Invoices\\In");
    EXPECT_EQ(WatchOf(input), rootWatch.get());
    EXPECT_EQ(watcher.watches.size(), 1u);

    world().files.WriteFile(input + u"\\report.pdf", "%PDF");
    RunCompletions();

    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED), (std::vector<std::string>{U8(kRoot) + "|Invoices\\In\\report.pdf"}));
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{U8(input) + "\\report.pdf"}));
}

TEST_F(HotFolderTreeTest, TheRootAsInputFolderMakesItsLooseFilesJobs)
{
    WriteHotFolder(u"Everything", "..");
    ASSERT_EQ(Start(), TreeStart::Watching);
    EXPECT_EQ(WatchOf(kRoot), rootWatch.get());

    world().files.WriteFile(InRoot(u"loose.txt"), "x");
    world().files.WriteFile(InRoot(u"Desktop.ini"), "not a hot folder's");
    world().files.WriteFile(InRoot(u"Everything\\note.txt"), "x");
    RunCompletions();

    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{U8(InRoot(u"loose.txt")), U8(InRoot(u"Desktop.ini"))}));
}

TEST_F(HotFolderTreeTest, ALooseFileInTheRootIsNeitherAHotFolderNorAJob)
{
    WriteHotFolder(u"Invoices", "In");
    ASSERT_EQ(Start(), TreeStart::Watching);

    world().files.WriteFile(InRoot(u"loose.txt"), "x");
    world().files.WriteFile(InRoot(u"Desktop.ini"), DesktopIniText("D:\\x", "y", "z"));
    RunCompletions();

    EXPECT_EQ(watcher.specsByIni.size(), 1u);
    EXPECT_TRUE(watcher.pending.IsEmpty());
    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED).size(), 2u) << "both are still reported";
}

TEST_F(HotFolderTreeTest, ASiblingWhoseNameBeginsWithTheRootsNameCountsAsBelowItAndIsNeverSeen)
{
    std::u16string const sibling = std::u16string(kRoot) + u" Archive";
    world().files.MakeDirectory(sibling);
    WriteHotFolder(u"Old", U8(sibling));
    ASSERT_EQ(Start(), TreeStart::Watching);

    EXPECT_EQ(WatchOf(sibling), rootWatch.get()) << "no watch of its own";
    EXPECT_EQ(rootWatch->useCount, 2u);

    world().files.WriteFile(sibling + u"\\old.pdf", "%PDF");
    RunCompletions();
    EXPECT_TRUE(watcher.pending.IsEmpty());
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_WATCHING_ROOT})) << "the root watch does not see beside itself";
}

TEST_F(HotFolderTreeTest, TheRootWatchsEntriesStayAfterTheirHotFoldersGo)
{
    WriteHotFolder(u"Invoices", "In");
    ASSERT_EQ(Start(), TreeStart::Watching);
    ASSERT_EQ(rootWatch->useCount, 2u);

    world().files.Delete(InRoot(u"Invoices\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(rootWatch->useCount, 1u);
    EXPECT_EQ(WatchOf(InRoot(u"Invoices\\In")), rootWatch.get()) << "the entry stays";

    WriteHotFolder(u"Invoices", "In");
    RunCompletions();
    EXPECT_EQ(rootWatch->useCount, 2u);
    EXPECT_EQ(watcher.watches.size(), 1u);
}

TEST_F(HotFolderTreeTest, AReloadReplacesTheSpecEvenWhenNothingChanged)
{
    world().files.MakeDirectory(u"D:\\In");
    WriteHotFolder(u"Invoices", "D:\\In");
    ASSERT_EQ(Start(), TreeStart::Watching);
    HotFolderSpecPtr const before = *watcher.specsByIni.begin();

    LoadHotFolder(InRoot(u"Invoices\\Desktop.ini"), watcher);

    ASSERT_EQ(watcher.specsByIni.size(), 1u);
    EXPECT_NE(*watcher.specsByIni.begin(), before);
    EXPECT_EQ(before.use_count(), 1) << "the tables let go of the old spec";
    EXPECT_EQ(*watcher.specsByInput.begin(), *watcher.specsByIni.begin());
}

TEST_F(HotFolderTreeTest, AnInputFolderThatDoesNotExistReports35OnEveryLoadAndTheSpecStays)
{
    world().files.MakeDirectory(u"D:\\");
    WriteHotFolder(u"Invoices", "D:\\Missing");
    ASSERT_EQ(Start(), TreeStart::Watching);

    EXPECT_EQ(LoadedHotFolders().size(), 1u);
    EXPECT_EQ(WatchOf(u"D:\\Missing"), nullptr);
    EXPECT_EQ(RenderedEvents().back(), "Failed to open user's hot folder folder D:\\Missing.  Error code: 2\r\n");

    world().files.Touch(InRoot(u"Invoices\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(EventsWithId(MSG_OPEN_FOLDER_FAILED).size(), 2u);
    EXPECT_EQ(LoadedHotFolders().size(), 1u);
    EXPECT_EQ(watcher.watches.size(), 0u);
}

}  // namespace
}  // namespace hf::test
