// Directory watches: every change record reported, watches shared by use
// count and ended by their wake-up file, and what survives each failure.
#include "WatcherTest.h"
#include "watcher/InputFiles.h"

#include <cstring>

namespace hf::test {
namespace {

class DirectoryWatchTest : public WatcherTest {
protected:
    // A hot folder on the outside folder D:\In, started.
    void StartWithOutsideFolder()
    {
        world().files.MakeDirectory(u"D:\\In");
        WriteHotFolder(u"Invoices", "D:\\In");
        ASSERT_EQ(Start(), TreeStart::Watching);
        world().eventLog.Clear();
    }
    HotFolderSpecPtr OnlySpec() const { return *watcher.specsByIni.begin(); }
};

TEST_F(DirectoryWatchTest, EveryRecordBecomesOneEventWithItsOwnMessage)
{
    StartWithOutsideFolder();

    world().files.WriteFile(u"D:\\In\\scan.pdf", "%PDF");                 // added, modified
    world().files.Rename(u"D:\\In\\scan.pdf", u"D:\\In\\invoice 7.pdf");  // renamed from, renamed to
    world().files.Delete(u"D:\\In\\invoice 7.pdf");                       // removed
    RunCompletions();

    EXPECT_EQ(RenderedEvents(), (std::vector<std::string>{
                                    "File added to D:\\In:\r\n\r\nscan.pdf\r\n",
                                    "File modified in D:\\In:\r\n\r\nscan.pdf\r\n",
                                    "File renamed in D:\\In.\r\n\r\nOld name: scan.pdf\r\n",
                                    "File renamed in D:\\In:\r\n\r\nNew name: invoice 7.pdf\r\n",
                                    "File removed from D:\\In:\r\n\r\ninvoice 7.pdf\r\n",
                                }));
    for (auto const& record : world().eventLog.Records()) {
        EXPECT_EQ(record.type, EVENTLOG_INFORMATION_TYPE);
        EXPECT_EQ(record.category, kCategoryUser);
    }
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_FILE_ADDED, MSG_FILE_MODIFIED, MSG_FILE_RENAMED_OLD,
                                              MSG_FILE_RENAMED_NEW, MSG_FILE_REMOVED}));
}

TEST_F(DirectoryWatchTest, AnUnknownActionIsAWarningAndTheWalkGoesOn)
{
    StartWithOutsideFolder();
    DirectoryWatch& watch = *WatchOf(u"D:\\In");

    // A buffer as the system could fill it, records end to end as Wine lays them:
    // an action this system does not know between two it does.
    struct Raw {
        DWORD action;
        std::u16string name;
    } const records[] = {{FILE_ACTION_ADDED, u"a.pdf"}, {9, u"b.pdf"}, {FILE_ACTION_MODIFIED, u"a.pdf"}};
    std::size_t offset = 0;
    for (std::size_t i = 0; i < std::size(records); ++i) {
        DWORD const nameBytes = static_cast<DWORD>(records[i].name.size() * 2);
        DWORD const size = 12 + nameBytes;
        DWORD const next = i + 1 < std::size(records) ? size : 0;
        std::memcpy(watch.buffer + offset, &next, 4);
        std::memcpy(watch.buffer + offset + 4, &records[i].action, 4);
        std::memcpy(watch.buffer + offset + 8, &nameBytes, 4);
        std::memcpy(watch.buffer + offset + 12, records[i].name.data(), nameBytes);
        offset += size;
    }
    OnFolderChange(0, static_cast<DWORD>(offset), &watch.overlapped);

    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_FILE_ADDED, MSG_FILE_UNKNOWN_ACTION, MSG_FILE_MODIFIED}));
    EXPECT_EQ(world().eventLog.Records()[1].type, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(RenderedEvents()[1], "Unknown file action in D:\\In:\r\n\r\nb.pdf\r\n");
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\a.pdf"})) << "an unknown action changes nothing";
}

TEST_F(DirectoryWatchTest, RecordsMadeBetweenTwoWaitsArriveInOneCompletionInOrder)
{
    StartWithOutsideFolder();

    world().files.WriteFile(u"D:\\In\\1.pdf", "");
    world().files.WriteFile(u"D:\\In\\2.pdf", "");
    world().files.WriteFile(u"D:\\In\\3.pdf", "");
    EXPECT_TRUE(world().eventLog.Records().empty()) << "nothing runs outside an alertable wait";
    RunCompletions();

    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED), (std::vector<std::string>{"D:\\In|1.pdf", "D:\\In|2.pdf", "D:\\In|3.pdf"}));
}

TEST_F(DirectoryWatchTest, AnInputFolderWatchLeavesOutItsSubfolders)
{
    StartWithOutsideFolder();
    world().files.MakeDirectory(u"D:\\In\\Sub");
    world().files.WriteFile(u"D:\\In\\Sub\\deep.pdf", "%PDF");
    RunCompletions();

    EXPECT_TRUE(world().eventLog.Records().empty()) << "no directory-name records, and no subtree";
}

TEST_F(DirectoryWatchTest, AReadThatCannotBeIssuedReports36AndLeavesTheWatchSilent)
{
    world().files.MakeDirectory(u"D:\\In");
    ASSERT_EQ(Start(), TreeStart::Watching);
    world().faults.Fail("ReadDirectoryChangesW", ERROR_ACCESS_DENIED);
    WriteHotFolder(u"Invoices", "D:\\In");
    RunCompletions();

    sim::EventRecord const failure = OnlyEvent(MSG_READ_DIRECTORY_CHANGES_FAILED);
    EXPECT_EQ(U8(sim::EventLog::Render(failure)), "ReadDirectoryChangesW(D:\\In) failed.  Error code: 5\r\n");
    EXPECT_EQ(failure.type, EVENTLOG_ERROR_TYPE);
    DirectoryWatch* watch = WatchOf(u"D:\\In");
    ASSERT_NE(watch, nullptr);
    EXPECT_TRUE(watch->directory.valid()) << "the handle stays open";

    world().eventLog.Clear();
    world().files.WriteFile(u"D:\\In\\unseen.pdf", "%PDF");
    RunCompletions();
    EXPECT_TRUE(world().eventLog.Records().empty());
    EXPECT_TRUE(watcher.pending.IsEmpty());
}

TEST_F(DirectoryWatchTest, ACompletionWithAnErrorReports37AndTheDeadWatchKeepsItsEntry)
{
    StartWithOutsideFolder();
    world().files.overflowError = ERROR_NOTIFY_ENUM_DIR;
    world().files.LoseChanges(u"D:\\In");
    RunCompletions();

    EXPECT_EQ(RenderedEvents(),
              (std::vector<std::string>{
                  "Unexpected error passed to overlapped callback watching D:\\In.  Error code: 1022\r\n"}));
    EXPECT_EQ(OnlyEvent(MSG_OVERLAPPED_CALLBACK_ERROR).type, EVENTLOG_ERROR_TYPE);

    // Silent from now on, and a hot folder loaded later only raises its count.
    world().eventLog.Clear();
    world().files.WriteFile(u"D:\\In\\unseen.pdf", "%PDF");
    WriteHotFolder(u"Second", "D:\\In");
    RunCompletions();
    ASSERT_NE(WatchOf(u"D:\\In"), nullptr);
    EXPECT_EQ(WatchOf(u"D:\\In")->useCount, 2u);
    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED), (std::vector<std::string>{U8(kRoot) + "|Second\\Desktop.ini"}));
    EXPECT_TRUE(watcher.pending.IsEmpty());
}

TEST_F(DirectoryWatchTest, TheRootsCompletionWithAnErrorEndsDesktopIniChanges)
{
    world().files.MakeDirectory(u"D:\\In");
    ASSERT_EQ(Start(), TreeStart::Watching);
    world().files.overflowError = ERROR_NOTIFY_ENUM_DIR;
    world().files.LoseChanges(kRoot);
    RunCompletions();
    EXPECT_EQ(RenderedEvents().back(),
              "Unexpected error passed to overlapped callback watching " + U8(kRoot) + ".  Error code: 1022\r\n");

    WriteHotFolder(u"Invoices", "D:\\In");
    RunCompletions();
    EXPECT_TRUE(watcher.specsByIni.empty());
}

TEST_F(DirectoryWatchTest, ALostBufferCompletedWithZeroBytesWalksThePreviousRecordsAgain)
{
    StartWithOutsideFolder();
    world().files.WriteFile(u"D:\\In\\a.pdf", "%PDF");
    RunCompletions();
    ASSERT_EQ(EventIds(), (std::vector<DWORD>{MSG_FILE_ADDED, MSG_FILE_MODIFIED}));
    DWORD const firstTouch = watcher.pending.Front().lastTouched;

    world().Advance(700);
    world().files.WriteFile(u"D:\\In\\lost.pdf", "%PDF");
    world().files.LoseChanges(u"D:\\In");
    RunCompletions();

    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED), (std::vector<std::string>{"D:\\In|a.pdf", "D:\\In|a.pdf"}));
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\a.pdf"})) << "no rescan finds lost.pdf";
    EXPECT_EQ(watcher.pending.Front().lastTouched, firstTouch + 700) << "a.pdf was touched once more";

    world().files.WriteFile(u"D:\\In\\later.pdf", "");
    RunCompletions();
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\a.pdf", "D:\\In\\later.pdf"})) << "re-armed";
}

TEST_F(DirectoryWatchTest, AZeroByteCompletionBeforeAnyRecordsWalksNothing)
{
    StartWithOutsideFolder();
    world().files.LoseChanges(u"D:\\In");
    world().files.LoseChanges(kRoot);
    RunCompletions();

    EXPECT_TRUE(world().eventLog.Records().empty());
    world().files.WriteFile(u"D:\\In\\a.pdf", "");
    RunCompletions();
    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED), (std::vector<std::string>{"D:\\In|a.pdf"})) << "still watching";
}

TEST_F(DirectoryWatchTest, TheLastUseWakesTheWatchWhichEndsInItsOwnCompletion)
{
    StartWithOutsideFolder();
    std::size_t const handles = world().OpenHandleCount();

    RemoveHotFolder(watcher, OnlySpec());

    DirectoryWatch* watch = WatchOf(u"D:\\In");
    ASSERT_NE(watch, nullptr) << "ended only from inside its completion routine";
    EXPECT_EQ(watch->useCount, 0u);
    EXPECT_TRUE(world().files.List(u"D:\\In").empty()) << "the wake-up file came and went";
    EXPECT_TRUE(world().HasApcs()) << "and completed the outstanding read";

    RunCompletions();
    EXPECT_EQ(WatchOf(u"D:\\In"), nullptr);
    EXPECT_EQ(world().OpenHandleCount(), handles - 1);
    EXPECT_TRUE(world().eventLog.Records().empty()) << "the ending read's records are not reported";
}

TEST_F(DirectoryWatchTest, AReloadBeforeTheWokenCompletionKeepsTheWatchAndReportsTheWakeUpFile)
{
    StartWithOutsideFolder();
    DirectoryWatch* const watch = WatchOf(u"D:\\In");

    LoadHotFolder(OnlySpec()->DesktopIniPath, watcher);
    EXPECT_EQ(watch->useCount, 1u) << "down to zero and up again";
    RunCompletions();

    ASSERT_EQ(WatchOf(u"D:\\In"), watch);
    std::vector<std::string> const added = EventsWithId(MSG_FILE_ADDED);
    std::vector<std::string> const removed = EventsWithId(MSG_FILE_REMOVED);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(added, removed);
    EXPECT_EQ(added[0].rfind("D:\\In|Wak", 0), 0u) << added[0];
    EXPECT_EQ(added[0].substr(added[0].size() - 4), ".TMP");
    EXPECT_TRUE(watcher.pending.IsEmpty()) << "the wake-up file was touched and forgotten";

    world().files.WriteFile(u"D:\\In\\after.pdf", "");
    RunCompletions();
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\after.pdf"}));
}

TEST_F(DirectoryWatchTest, WithoutAWakeUpFileTheWatchEndsAtItsNextChangeWhateverItIs)
{
    StartWithOutsideFolder();
    world().faults.Fail("GetTempFileNameW", ERROR_ACCESS_DENIED);
    RemoveHotFolder(watcher, OnlySpec());
    RunCompletions();
    ASSERT_NE(WatchOf(u"D:\\In"), nullptr) << "nothing completed its read";
    EXPECT_TRUE(world().eventLog.Records().empty()) << "silently";

    world().files.WriteFile(u"D:\\In\\someone's.pdf", "");
    RunCompletions();
    EXPECT_EQ(WatchOf(u"D:\\In"), nullptr);
    EXPECT_TRUE(world().eventLog.Records().empty());
}

TEST_F(DirectoryWatchTest, ReleasingAFolderWithoutAWatchTouchesNoOtherWatch)
{
    StartWithOutsideFolder();
    world().files.MakeDirectory(u"D:\\Other");

    ReleaseDirectoryWatch(watcher, u"D:\\Other");
    ReleaseDirectoryWatch(watcher, u"D:\\");

    EXPECT_EQ(WatchOf(u"D:\\In")->useCount, 1u);
    EXPECT_EQ(rootWatch->useCount, 1u);
    EXPECT_FALSE(world().HasApcs());
    EXPECT_TRUE(world().files.List(u"D:\\Other").empty());
}

TEST_F(DirectoryWatchTest, TheRootWatchReportsNamesRelativeToTheRootAndNeverEnds)
{
    WriteHotFolder(u"Invoices", "In");
    ASSERT_EQ(Start(), TreeStart::Watching);
    world().eventLog.Clear();

    world().files.WriteFile(InRoot(u"Invoices\\In\\Sub\\deep.pdf"), "");
    world().files.WriteFile(InRoot(u"Invoices\\notes.txt"), "");
    world().files.Delete(InRoot(u"Invoices\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(rootWatch->useCount, 1u);

    world().files.WriteFile(InRoot(u"Invoices\\again.txt"), "");
    RunCompletions();

    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED),
              (std::vector<std::string>{U8(kRoot) + "|Invoices\\In\\Sub\\deep.pdf", U8(kRoot) + "|Invoices\\notes.txt",
                                        U8(kRoot) + "|Invoices\\again.txt"}));
    EXPECT_EQ(EventsWithId(MSG_FILE_REMOVED), (std::vector<std::string>{U8(kRoot) + "|Invoices\\Desktop.ini"}));
}

}  // namespace
}  // namespace hf::test
