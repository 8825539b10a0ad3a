// An input folder: its records reported, the files pending until they settle,
// the hot folders each goes to, and what survives each failure of a watch.
#include "WatcherTest.h"
#include "watcher/InputFiles.h"

#include <cstring>
#include <utility>

namespace hf::test {
namespace {

class InputFolderTest : public WatcherTest {
protected:
    // The hot folder NextSpecFor hands the front file to ("" for none).
    std::string NextHotFolder()
    {
        HotFolderSpecPtr const spec = NextSpecFor(watcher.pending.Front(), watcher.specsByInput);
        return spec ? U8(spec->DesktopIniPath.substr(std::size(kRoot))) : "";
    }
};

// Each record is one event of its own. The queue keeps one entry per file (any
// spelling), ordered by its latest record, which restarts its settle time, even
// across the tick count's wrap; renames and deletions take files out, subfolders
// never count. A file's input folder is found by its whole name ignoring case,
// then confirmed folding A to Z only; the file goes to each of its hot folders
// in DesktopIniPath order, again after a new record, and to none once they go.
TEST_F(InputFolderTest, WhatUsersDoToAnInputFolder)
{
    world().files.MakeDirectory(u"D:\\Ä");
    WriteHotFolder(u"C", "D:\\Ä");  // another input folder, after D:\In in the table
    StartOn({u"B", u"A"});
    world().files.recordLayout = sim::FileSystem::RecordLayout::Packed;  // end to end, as Wine lays them
    std::pair<const char16_t*, bool> const cases[] = {
        {u"D:\\In\\a.pdf", true},   {u"D:\\IN\\a.pdf", true},       {u"D:\\Ä\\a.pdf", true}, {u"D:\\ä\\a.pdf", false},
        {u"D:\\In2\\a.pdf", false}, {u"D:\\In\\Sub\\a.pdf", false}, {u"D:\\a.pdf", false},   {u"D:\\Zz\\a.pdf", false},
    };
    for (auto const& [path, watched] : cases) {
        EXPECT_EQ(IsWatchedInputFile(path, watcher.specsByInput), watched) << U8(path);
    }

    world().SetTicks(0xFFFFFFFFu - 1000);  // the tick count wraps while the files settle
    world().files.WriteFile(u"D:\\Elsewhere\\incoming.pdf", "%PDF");
    world().files.WriteFile(u"D:\\In\\scan.pdf", "%PDF");
    world().files.Rename(u"D:\\In\\scan.pdf", u"D:\\In\\invoice 7.pdf");
    world().files.WriteFile(u"D:\\In\\Report.pdf", "%PDF");
    world().files.WriteFile(u"D:\\In\\gone.pdf", "");
    world().files.Delete(u"D:\\In\\gone.pdf");
    world().files.MakeDirectory(u"D:\\In\\Sub");
    world().files.Touch(u"D:\\In\\Sub");
    world().files.WriteFile(u"D:\\In\\Sub\\deep.pdf", "%PDF");
    RunCompletions();

    EXPECT_EQ(RenderedEvents(),
              (Texts{"File added to D:\\In:\r\n\r\nscan.pdf\r\n", "File modified in D:\\In:\r\n\r\nscan.pdf\r\n",
                     "File renamed in D:\\In.\r\n\r\nOld name: scan.pdf\r\n",
                     "File renamed in D:\\In:\r\n\r\nNew name: invoice 7.pdf\r\n",
                     "File added to D:\\In:\r\n\r\nReport.pdf\r\n", "File modified in D:\\In:\r\n\r\nReport.pdf\r\n",
                     "File added to D:\\In:\r\n\r\ngone.pdf\r\n", "File removed from D:\\In:\r\n\r\ngone.pdf\r\n",
                     "File modified in D:\\In:\r\n\r\nSub\r\n"}));
    for (auto const& record : world().eventLog.Records()) {
        EXPECT_EQ(record.type, EVENTLOG_INFORMATION_TYPE);
    }
    EXPECT_EQ(PendingPaths(), (Texts{"D:\\In\\invoice 7.pdf", "D:\\In\\Report.pdf"}));

    world().Advance(1500);
    world().files.AppendFile(u"D:\\In\\INVOICE 7.PDF", "more");
    world().files.Rename(u"D:\\Elsewhere\\incoming.pdf", u"D:\\In\\incoming.pdf");
    RunCompletions();
    EXPECT_EQ(PendingPaths(), (Texts{"D:\\In\\Report.pdf", "D:\\In\\INVOICE 7.PDF", "D:\\In\\incoming.pdf"}));
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 500u);

    world().files.Rename(u"D:\\In\\incoming.pdf", u"D:\\Elsewhere\\incoming.pdf");
    world().files.Delete(u"D:\\In\\invoice 7.pdf");
    RunCompletions();
    EXPECT_EQ(PendingPaths(), (Texts{"D:\\In\\Report.pdf"}));

    EXPECT_EQ(NextHotFolder(), "A\\Desktop.ini");
    EXPECT_EQ(NextHotFolder(), "B\\Desktop.ini");
    EXPECT_EQ(NextHotFolder(), "");
    world().files.AppendFile(u"D:\\In\\Report.pdf", "stamped");
    world().files.Delete(InRoot(u"A\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(NextHotFolder(), "B\\Desktop.ini");
    world().files.AppendFile(u"D:\\In\\Report.pdf", "again");
    world().files.Delete(InRoot(u"B\\Desktop.ini"));
    RunCompletions();
    EXPECT_EQ(NextHotFolder(), "");

    // The walk follows each record's distance to the next, whatever it is: past
    // an action this system does not know, to a record that ends exactly at the
    // end of the buffer.
    world().eventLog.Clear();
    DirectoryWatch& watch = *WatchOf(u"D:\\Ä");
    auto const put = [&watch](std::size_t offset, DWORD next, DWORD action, std::u16string const& name) {
        DWORD const header[] = {next, action, static_cast<DWORD>(name.size() * 2)};
        std::memcpy(watch.buffer + offset, header, sizeof header);
        std::memcpy(watch.buffer + offset + sizeof header, name.data(), header[2]);
    };
    put(0, 22, FILE_ACTION_ADDED, u"a.pdf");
    put(22, kChangeBufferSize - 44, 9, u"b.pdf");
    put(kChangeBufferSize - 22, 0, FILE_ACTION_MODIFIED, u"a.pdf");
    OnFolderChange(0, 44, &watch.overlapped);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_FILE_ADDED, MSG_FILE_UNKNOWN_ACTION, MSG_FILE_MODIFIED}));
    EXPECT_EQ(world().eventLog.Records()[1].type, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(RenderedEvents()[1], "Unknown file action in D:\\Ä:\r\n\r\nb.pdf\r\n");
    EXPECT_EQ(PendingPaths(), (Texts{"D:\\In\\Report.pdf", "D:\\Ä\\a.pdf"})) << "the loop pops a file, not the walk";
}

// A watch ends only in its own completion, whose records are not reported: a
// reload before the wake-up file's completion keeps the watch, which then
// reports that file; without a wake-up file the watch ends at its next change.
// Lost changes complete the read with zero bytes (as Windows does): the
// previous read's records are walked again (none before the first read),
// nothing rescans the folder, and the watch goes on. A read that cannot be
// issued (36) leaves the watch open and silent; a completion with an error (37,
// as Wine reports lost changes) leaves it in its table, silent, so that a hot
// folder loaded later only raises its count; on the root it ends all changes.
TEST_F(InputFolderTest, AWatchFromItsLastUseToItsFailedReads)
{
    StartOn({u"Invoices", u"Other"});
    DirectoryWatch* const watch = WatchOf(u"D:\\In");
    RemoveHotFolder(watcher, *watcher.specsByIni.begin());
    LoadHotFolder(InRoot(u"Other\\Desktop.ini"), watcher);
    RunCompletions();
    ASSERT_EQ(WatchOf(u"D:\\In"), watch);
    Texts const added = EventsWithId(MSG_FILE_ADDED);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(added, EventsWithId(MSG_FILE_REMOVED));
    EXPECT_TRUE(watcher.pending.IsEmpty()) << "the wake-up file was touched and forgotten";

    world().eventLog.Clear();
    world().faults.Fail("GetTempFileNameW", ERROR_ACCESS_DENIED);
    RemoveHotFolder(watcher, *watcher.specsByIni.begin());
    RunCompletions();
    ASSERT_EQ(WatchOf(u"D:\\In"), watch) << "nothing completed its read";
    world().files.WriteFile(u"D:\\In\\someone's.pdf", "");
    RunCompletions();
    EXPECT_EQ(WatchOf(u"D:\\In"), nullptr);
    EXPECT_TRUE(world().eventLog.Records().empty());

    LoadHotFolder(InRoot(u"Invoices\\Desktop.ini"), watcher);  // a new watch
    world().files.LoseChanges(u"D:\\In");
    RunCompletions();
    EXPECT_TRUE(world().eventLog.Records().empty());

    world().files.WriteFile(u"D:\\In\\a.pdf", "");
    RunCompletions();
    world().Advance(700);
    world().files.WriteFile(u"D:\\In\\lost.pdf", "%PDF");
    world().files.LoseChanges(u"D:\\In");
    RunCompletions();
    EXPECT_EQ(EventsWithId(MSG_FILE_ADDED), (Texts{"D:\\In|a.pdf", "D:\\In|a.pdf"}));
    EXPECT_EQ(PendingPaths(), (Texts{"D:\\In\\a.pdf"}));
    EXPECT_EQ(SettleTimeLeft(watcher.pending.Front()), 2000u) << "a.pdf was touched once more";

    world().files.WriteFile(u"D:\\In\\later.pdf", "");  // the watch goes on: pending below
    RunCompletions();

    world().eventLog.Clear();
    world().faults.Fail("ReadDirectoryChangesW", ERROR_ACCESS_DENIED);
    world().files.MakeDirectory(u"D:\\Second");
    WriteHotFolder(u"Second", "D:\\Second");
    world().files.overflowError = ERROR_NOTIFY_ENUM_DIR;
    world().files.LoseChanges(u"D:\\In");
    RunCompletions();
    EXPECT_EQ(RenderedEvents(),
              (Texts{"File added to " + kRoot8 + ":\r\n\r\nSecond\\Desktop.ini\r\n",
                     "ReadDirectoryChangesW(D:\\Second) failed.  Error code: 5\r\n",
                     "File modified in " + kRoot8 + ":\r\n\r\nSecond\\Desktop.ini\r\n",
                     "Unexpected error passed to overlapped callback watching D:\\In.  Error code: 1022\r\n"}));
    EXPECT_EQ(world().eventLog.WithId(MSG_OVERLAPPED_CALLBACK_ERROR).at(0).type, EVENTLOG_ERROR_TYPE);
    ASSERT_NE(WatchOf(u"D:\\Second"), nullptr);
    EXPECT_TRUE(WatchOf(u"D:\\Second")->directory.valid());

    world().files.WriteFile(u"D:\\In\\unseen.pdf", "");
    world().files.WriteFile(u"D:\\Second\\unseen.pdf", "");
    WriteHotFolder(u"Third", "D:\\In");
    RunCompletions();
    EXPECT_EQ(WatchOf(u"D:\\In")->useCount, 2u);
    EXPECT_EQ(PendingPaths(), (Texts{"D:\\In\\a.pdf", "D:\\In\\later.pdf"})) << "nothing unseen";

    world().files.LoseChanges(kRoot);
    RunCompletions();
    EXPECT_EQ(EventsWithId(MSG_OVERLAPPED_CALLBACK_ERROR).back(), kRoot8 + "|1022");
    WriteHotFolder(u"Fourth", "D:\\In");
    RunCompletions();
    EXPECT_EQ(LoadedHotFolders().size(), 3u);
}

}  // namespace
}  // namespace hf::test
