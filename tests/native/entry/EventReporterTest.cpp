// Event reporting: the fields every report carries and the message texts.
#include "EventReporter.h"
#include "SimTest.h"

namespace hf::test {
namespace {

class EventReporterTest : public SimTest {};

TEST_F(EventReporterTest, ReportsWithoutInsertionStringsPassACountOfZero)
{
    EventReporter events(kCategoryUser);
    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_WATCHER_ALREADY_RUNNING);
    sim::EventRecord const record = OnlyEvent(MSG_WATCHER_ALREADY_RUNNING);
    EXPECT_TRUE(record.strings.empty());
    EXPECT_EQ(U8(record.source), "Tarnwick Hot Folders");
    EXPECT_EQ(RenderedEvents().back(), "Exiting because there is already a hot folder watcher process running.\r\n");
}

TEST_F(EventReporterTest, RootWatchMessagesKeepTheirPercentS)
{
    EventReporter events(kCategoryUser);
    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_WATCHING_ROOT, {u"C:\\Users\\jo\\Tarnwick Hot Folders"});
    events.Report(EVENTLOG_ERROR_TYPE, MSG_WATCH_ROOT_FAILED, {u"C:\\Users\\jo\\Tarnwick Hot Folders"});
    EXPECT_EQ(RenderedEvents(),
              (std::vector<std::string>{"Watching for changes to the root hot folder directory %s.\r\n",
                                        "Failed to watch the root hot folder directory %s.\r\n"}));
    EXPECT_EQ(world().eventLog.Records().front().strings.size(), 1u) << "the path still travels with the report";
}

TEST_F(EventReporterTest, LineBreakEscapesRenderAsTheViewerShowsThem)
{
    EventReporter events(kCategoryUser);
    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_FILE_RENAMED_OLD, {u"C:\\In", u"a.pdf"});
    EXPECT_EQ(RenderedEvents().back(), "File renamed in C:\\In.\r\n\r\nOld name: a.pdf\r\n");
}

TEST_F(EventReporterTest, ErrorCodesAreSignedDecimal)
{
    os::SetLastError(0x80070424u);
    EXPECT_EQ(U8(LastErrorText()), "-2147023836");
    os::SetLastError(1060);
    EXPECT_EQ(U8(LastErrorText()), "1060");
    EXPECT_EQ(U8(HexText(0x80040154u)), "0x80040154");
    EXPECT_EQ(U8(HexText(0)), "0x0");
}

TEST_F(EventReporterTest, ClosingReleasesTheSourceAndTheOwnerDescriptor)
{
    {
        EventReporter events(kCategoryService);
        EXPECT_EQ(world().eventLog.openSources, 1);
        events.Report(EVENTLOG_SUCCESS, MSG_FOUND_INSTALLED_USER, {u"OFFICE\\clerk"});
        EXPECT_EQ(OnlyEvent(MSG_FOUND_INSTALLED_USER).category, kCategoryService);
    }
    EXPECT_EQ(world().eventLog.openSources, 0);
    EXPECT_EQ(HandlesLeftOpen(), 0);
}

TEST_F(EventReporterTest, ARefusedReportChangesNothingForTheCaller)
{
    EventReporter events(kCategoryUser);
    world().faults.Fail("ReportEventW", ERROR_ACCESS_DENIED);
    os::SetLastError(42);
    events.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_FOLDER_FAILED, {u"C:\\x", u"3"});
    events.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_FOLDER_FAILED, {u"C:\\y", u"3"});
    EXPECT_EQ(world().eventLog.Records().size(), 1u) << "only the refused report is missing";
}

}  // namespace
}  // namespace hf::test
