// Pending files: the queue itself, the settle time measured from the latest
// record, and how renames, deletions, spellings and several hot folders on one
// input folder decide what is handed on, to whom, and when.
#include "WatcherTest.h"
#include "watcher/InputFiles.h"
#include "watcher/PendingFiles.h"

namespace hf::test {
namespace {

class PendingQueueTest : public SimTest {
protected:
    std::vector<std::string> Paths() const
    {
        std::vector<std::string> paths;
        for (auto const& file : pending) {
            paths.push_back(U8(file.path));
        }
        return paths;
    }
    PendingFiles pending;
};

TEST_F(PendingQueueTest, ATouchQueuesAFileOnceAndMovesItToTheBackWithAFreshTick)
{
    pending.Touch(u"D:\\In\\a.pdf");
    world().Advance(10);
    pending.Touch(u"D:\\In\\b.pdf");
    world().Advance(10);
    pending.Touch(u"D:\\In\\c.pdf");
    pending.Front().dispatchedTo = u"C:\\HF\\A\\Desktop.ini";
    world().Advance(10);

    pending.Touch(u"D:\\In\\a.pdf");

    EXPECT_EQ(Paths(), (std::vector<std::string>{"D:\\In\\b.pdf", "D:\\In\\c.pdf", "D:\\In\\a.pdf"}));
    EXPECT_EQ(pending.Size(), 3u);
    EXPECT_EQ(pending.Back().lastTouched, world().Ticks());
    EXPECT_TRUE(pending.Back().dispatchedTo.empty()) << "a touch starts the hot folders afresh";
    EXPECT_EQ(pending.Front().lastTouched, 10u);
}

TEST_F(PendingQueueTest, AnotherSpellingOfAQueuedPathIsTheSameFileAndGivesItsSpelling)
{
    pending.Touch(u"D:\\In\\Report.pdf");
    pending.Touch(u"D:\\In\\b.pdf");
    pending.Touch(u"d:\\IN\\REPORT.PDF");

    EXPECT_EQ(Paths(), (std::vector<std::string>{"D:\\In\\b.pdf", "d:\\IN\\REPORT.PDF"}));
    pending.Forget(u"D:\\in\\report.pdf");
    EXPECT_EQ(Paths(), (std::vector<std::string>{"D:\\In\\b.pdf"}));
}

TEST_F(PendingQueueTest, ForgetAndPopFrontTakeFilesOutOfTheListAndTheIndex)
{
    pending.Forget(u"D:\\In\\never.pdf");
    EXPECT_TRUE(pending.IsEmpty());

    pending.Touch(u"D:\\In\\a.pdf");
    pending.Touch(u"D:\\In\\b.pdf");
    pending.Touch(u"D:\\In\\c.pdf");
    pending.Forget(u"D:\\In\\b.pdf");
    pending.PopFront();
    EXPECT_EQ(Paths(), (std::vector<std::string>{"D:\\In\\c.pdf"}));

    pending.Touch(u"D:\\In\\a.pdf");  // queued anew, not found as a stale entry
    pending.Touch(u"D:\\In\\c.pdf");
    EXPECT_EQ(Paths(), (std::vector<std::string>{"D:\\In\\a.pdf", "D:\\In\\c.pdf"}));
    pending.PopFront();
    pending.PopFront();
    EXPECT_TRUE(pending.IsEmpty());
    EXPECT_EQ(pending.Size(), 0u);
}

TEST_F(PendingQueueTest, TheSettleTimeLeftCountsFromTheLastTouch)
{
    pending.Touch(u"D:\\In\\a.pdf");
    world().Advance(500);
    EXPECT_EQ(SettleTimeLeft(pending.Front()), 1500u);
    world().Advance(1499);
    EXPECT_EQ(SettleTimeLeft(pending.Front()), 1u);
    world().Advance(1);
    EXPECT_EQ(SettleTimeLeft(pending.Front()), 0u);
    world().Advance(100000);
    EXPECT_EQ(SettleTimeLeft(pending.Front()), 0u);
}

TEST_F(PendingQueueTest, TheWrapOfTheTickCountDoesNotDisturbTheSettleTime)
{
    world().SetTicks(0xFFFFFF00u);
    pending.Touch(u"D:\\In\\a.pdf");
    world().Advance(0x200);
    ASSERT_LT(world().Ticks(), 0x1000u) << "the counter has wrapped";
    EXPECT_EQ(SettleTimeLeft(pending.Front()), 2000u - 0x200u);
    world().Advance(2000 - 0x200);
    EXPECT_EQ(SettleTimeLeft(pending.Front()), 0u);
}

class PendingFilesTest : public WatcherTest {
protected:
    // Hot folders "A" and "B" below the root, both on D:\Shared.
    void StartTwoHotFoldersOnOneFolder()
    {
        world().files.MakeDirectory(u"D:\\Shared");
        WriteHotFolder(u"B", "D:\\Shared", "OutB", "b.py");
        WriteHotFolder(u"A", "D:\\Shared", "OutA", "a.py");
        ASSERT_EQ(Start(), TreeStart::Watching);
    }
    // A hot folder on D:\In, started.
    void StartOneHotFolder()
    {
        world().files.MakeDirectory(u"D:\\In");
        world().files.MakeDirectory(u"D:\\Elsewhere");
        WriteHotFolder(u"Invoices", "D:\\In");
        ASSERT_EQ(Start(), TreeStart::Watching);
    }
    // The hot folder name NextSpecFor hands the front file to ("" for none).
    std::string NextHotFolder()
    {
        HotFolderSpecPtr const spec = NextSpecFor(watcher.pending.Front(), watcher.specsByInput);
        if (!spec) {
            return "";
        }
        EXPECT_EQ(U8(watcher.pending.Front().dispatchedTo), U8(spec->DesktopIniPath));
        return U8(spec->DesktopIniPath.substr(std::u16string(kRoot).size() + 1));
    }
};

TEST_F(PendingFilesTest, AFileCopiedInSettles2000MsAfterItsLastRecord)
{
    StartOneHotFolder();
    world().files.WriteFile(u"D:\\In\\big.pdf", "part 1");
    RunCompletions();
    for (int i = 0; i < 3; ++i) {
        world().Advance(1500);
        world().files.AppendFile(u"D:\\In\\big.pdf", " more");
        RunCompletions();
        EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 2000u) << "each record restarts the settle time";
    }

    world().Advance(1999);
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 1u);
    world().Advance(1);
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 0u);
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\big.pdf"}));
    EXPECT_EQ(NextHotFolder(), "Invoices\\Desktop.ini");
}

TEST_F(PendingFilesTest, AFileTouchedJustBeforeTheTickCountWrapsSettlesOnTimeAfterIt)
{
    StartOneHotFolder();
    world().SetTicks(0xFFFFFFFFu - 1500);
    world().files.WriteFile(u"D:\\In\\late.pdf", "part");
    RunCompletions();
    world().Advance(1000);
    world().files.AppendFile(u"D:\\In\\late.pdf", " end");
    RunCompletions();
    ASSERT_GT(watcher.pending.Front().lastTouched, 0xFFFFF000u);

    world().Advance(1999);
    ASSERT_LT(world().Ticks(), 0x1000u) << "the counter has wrapped since the last record";
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 1u);
    world().Advance(1);
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 0u);
}

TEST_F(PendingFilesTest, OnlyTheFrontNeedsTestingBecauseTouchesKeepTheQueueInTimeOrder)
{
    StartOneHotFolder();
    world().files.WriteFile(u"D:\\In\\first.pdf", "");
    RunCompletions();
    world().Advance(1000);
    world().files.WriteFile(u"D:\\In\\second.pdf", "");
    RunCompletions();
    world().Advance(500);
    world().files.Touch(u"D:\\In\\first.pdf");
    RunCompletions();

    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\second.pdf", "D:\\In\\first.pdf"}));
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 1500u);
}

TEST_F(PendingFilesTest, RenamingWithinTheFolderForgetsTheOldNameAndQueuesTheNew)
{
    StartOneHotFolder();
    world().files.WriteFile(u"D:\\In\\draft.pdf", "%PDF");
    world().files.WriteFile(u"D:\\In\\other.pdf", "%PDF");
    RunCompletions();
    world().Advance(1800);

    world().files.Rename(u"D:\\In\\draft.pdf", u"D:\\In\\final.pdf");
    RunCompletions();

    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\other.pdf", "D:\\In\\final.pdf"}));
    EXPECT_EQ(watcher.pending.Back().lastTouched, world().Ticks()) << "a fresh settle time";
}

TEST_F(PendingFilesTest, RenamingIntoTheFolderQueuesAndRenamingOutForgets)
{
    StartOneHotFolder();
    world().files.WriteFile(u"D:\\Elsewhere\\incoming.pdf", "%PDF");
    world().files.WriteFile(u"D:\\In\\leaving.pdf", "%PDF");
    RunCompletions();
    ASSERT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\leaving.pdf"}));

    world().files.Rename(u"D:\\Elsewhere\\incoming.pdf", u"D:\\In\\incoming.pdf");
    world().files.Rename(u"D:\\In\\leaving.pdf", u"D:\\Elsewhere\\leaving.pdf");
    RunCompletions();

    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\incoming.pdf"}));
    EXPECT_EQ(EventIds().back(), MSG_FILE_REMOVED);
}

TEST_F(PendingFilesTest, AFileDeletedBeforeItIsReadyIsForgotten)
{
    StartOneHotFolder();
    world().files.WriteFile(u"D:\\In\\gone.pdf", "%PDF");
    RunCompletions();
    world().files.Delete(u"D:\\In\\gone.pdf");
    RunCompletions();
    EXPECT_TRUE(watcher.pending.IsEmpty());
}

TEST_F(PendingFilesTest, ARecordSpelledInAnotherCaseRefreshesTheEntryAndRespellsIt)
{
    StartOneHotFolder();
    world().files.WriteFile(u"D:\\In\\Report.pdf", "%PDF");
    world().files.WriteFile(u"D:\\In\\other.pdf", "%PDF");
    RunCompletions();
    world().Advance(1000);

    world().files.AppendFile(u"D:\\In\\REPORT.PDF", "more");
    RunCompletions();

    EXPECT_EQ(EventsWithId(MSG_FILE_MODIFIED).back(), "D:\\In|REPORT.PDF");
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\In\\other.pdf", "D:\\In\\REPORT.PDF"}));
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Back()), 2000u);
}

TEST_F(PendingFilesTest, TwoHotFoldersOnOneFolderGetEachFileInDesktopIniPathOrder)
{
    StartTwoHotFoldersOnOneFolder();
    world().files.WriteFile(u"D:\\Shared\\scan.pdf", "%PDF");
    RunCompletions();
    world().Advance(2000);

    EXPECT_EQ(NextHotFolder(), "A\\Desktop.ini");
    EXPECT_EQ(NextHotFolder(), "B\\Desktop.ini");
    EXPECT_EQ(NextHotFolder(), "");
    EXPECT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\Shared\\scan.pdf"})) << "the loop pops it";
}

TEST_F(PendingFilesTest, ANewRecordBetweenTwoHotFoldersStartsAgainWithTheFirst)
{
    StartTwoHotFoldersOnOneFolder();
    world().files.WriteFile(u"D:\\Shared\\scan.pdf", "%PDF");
    RunCompletions();
    world().Advance(2000);
    ASSERT_EQ(NextHotFolder(), "A\\Desktop.ini");

    world().files.AppendFile(u"D:\\Shared\\scan.pdf", "rewritten by A's script");
    RunCompletions();
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 2000u);
    world().Advance(2000);

    EXPECT_EQ(NextHotFolder(), "A\\Desktop.ini");
    EXPECT_EQ(NextHotFolder(), "B\\Desktop.ini");
}

TEST_F(PendingFilesTest, AFileDeletedAfterItsFirstJobGetsNoMore)
{
    StartTwoHotFoldersOnOneFolder();
    world().files.WriteFile(u"D:\\Shared\\scan.pdf", "%PDF");
    RunCompletions();
    world().Advance(2000);
    ASSERT_EQ(NextHotFolder(), "A\\Desktop.ini");

    world().files.Delete(u"D:\\Shared\\scan.pdf");
    RunCompletions();
    EXPECT_TRUE(watcher.pending.IsEmpty());
}

TEST_F(PendingFilesTest, AFileWhoseHotFoldersAllWentHasNoNextHotFolder)
{
    StartTwoHotFoldersOnOneFolder();
    world().files.WriteFile(u"D:\\Shared\\scan.pdf", "%PDF");
    RunCompletions();
    world().files.Delete(InRoot(u"A\\Desktop.ini"));
    world().files.Delete(InRoot(u"B\\Desktop.ini"));
    RunCompletions();
    world().Advance(2000);

    ASSERT_EQ(PendingPaths(), (std::vector<std::string>{"D:\\Shared\\scan.pdf"}));
    EXPECT_EQ(NextHotFolder(), "");
}

TEST_F(PendingFilesTest, DirectoriesAndFilesOfSubfoldersAreNeverPending)
{
    WriteHotFolder(u"Invoices", "In");
    world().files.MakeDirectory(u"D:\\In");
    WriteHotFolder(u"Letters", "D:\\In");
    ASSERT_EQ(Start(), TreeStart::Watching);

    world().files.MakeDirectory(u"D:\\In\\Sub");
    world().files.Touch(u"D:\\In\\Sub");  // a directory's own record
    world().files.WriteFile(InRoot(u"Invoices\\In\\Sub\\deep.pdf"), "%PDF");
    world().files.Touch(InRoot(u"Invoices\\In\\Sub"));
    RunCompletions();

    EXPECT_EQ(EventsWithId(MSG_FILE_MODIFIED),
              (std::vector<std::string>{"D:\\In|Sub", U8(kRoot) + "|Invoices\\In\\Sub\\deep.pdf",
                                        U8(kRoot) + "|Invoices\\In\\Sub"}));
    EXPECT_TRUE(watcher.pending.IsEmpty());
}

TEST_F(PendingFilesTest, AnInputFolderIsMatchedByItsWholeNameWithAToZFoldedOnly)
{
    world().files.MakeDirectory(u"D:\\Ä");
    world().files.MakeDirectory(u"D:\\In");
    world().files.MakeDirectory(u"D:\\In2");
    WriteHotFolder(u"Umlaut", "D:\\Ä");
    WriteHotFolder(u"Invoices", "d:\\in");
    ASSERT_EQ(Start(), TreeStart::Watching);

    SpecsByInput const& specs = watcher.specsByInput;
    EXPECT_TRUE(IsWatchedInputFile(u"D:\\In\\a.pdf", specs));
    EXPECT_TRUE(IsWatchedInputFile(u"D:\\IN\\a.pdf", specs));
    EXPECT_TRUE(IsWatchedInputFile(u"D:\\Ä\\a.pdf", specs));
    EXPECT_FALSE(IsWatchedInputFile(u"D:\\ä\\a.pdf", specs)) << "found by the table, refused by the confirmation";
    EXPECT_FALSE(IsWatchedInputFile(u"D:\\In2\\a.pdf", specs));
    EXPECT_FALSE(IsWatchedInputFile(u"D:\\In\\Sub\\a.pdf", specs));
    EXPECT_FALSE(IsWatchedInputFile(u"D:\\a.pdf", specs));
    EXPECT_FALSE(IsWatchedInputFile(u"D:\\Zz\\a.pdf", specs));
}

TEST_F(PendingFilesTest, AFileHandedToAllItsHotFoldersAndChangedAgainIsHandedToAllAgain)
{
    StartTwoHotFoldersOnOneFolder();
    world().files.WriteFile(u"D:\\Shared\\scan.pdf", "%PDF");
    RunCompletions();
    world().Advance(2000);
    ASSERT_EQ(NextHotFolder(), "A\\Desktop.ini");
    ASSERT_EQ(NextHotFolder(), "B\\Desktop.ini");

    world().files.AppendFile(u"D:\\Shared\\scan.pdf", "stamped");
    RunCompletions();
    world().Advance(2000);
    EXPECT_EQ(NextHotFolder(), "A\\Desktop.ini");
}

}  // namespace
}  // namespace hf::test
