// The user-name and pipe-name rules that the watcher, the service and the
// plug-in share, and opening the plug-in's pipe.
#include "SimTest.h"
#include "acrobat/PipeNames.h"
#include "acrobat/PlugInPipe.h"
#include "platform/Files.h"
#include "platform/sim/SimPipePeers.h"

namespace hf::test {
namespace {

class PipeNamesTest : public SimTest {};

TEST_F(PipeNamesTest, BackslashesOfTheUserBecomeUnderscores)
{
    struct Row {
        std::u16string prefix;
        std::u16string user;
        std::u16string name;
    };
    for (Row const& row : std::vector<Row>{
             {kPlugInPipePrefix, u"OFFICE\\clerk", u"\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk"},
             {u"Tarnwick_FolderWatcher_", u"OFFICE\\clerk", u"\\\\.\\pipe\\Tarnwick_FolderWatcher_OFFICE_clerk"},
             {kPlugInPipePrefix, u"A\\B\\C", u"\\\\.\\pipe\\Tarnwick_PlugIn_A_B_C"},
             {kPlugInPipePrefix, u"HOST\\Zoë Ünal", u"\\\\.\\pipe\\Tarnwick_PlugIn_HOST_Zoë Ünal"},
             {kPlugInPipePrefix, u"", u"\\\\.\\pipe\\Tarnwick_PlugIn_"},
         }) {
        EXPECT_EQ(U8(MakePipeName(row.prefix, row.user)), U8(row.name));
    }
}

TEST_F(PipeNamesTest, CurrentUserIsTheSamCompatibleName)
{
    world().processes.current.userName = u"CONTOSO\\alice";
    EXPECT_EQ(U8(GetCurrentUserName()), "CONTOSO\\alice");
    EXPECT_EQ(U8(PlugInPipeName()), "\\\\.\\pipe\\Tarnwick_PlugIn_CONTOSO_alice");
}

// The buffer starts at 1024 characters and doubles until the name fits.
TEST_F(PipeNamesTest, LongNamesAreReadWhole)
{
    for (std::size_t length : {1023u, 1024u, 1025u, 3000u, 5000u}) {
        std::u16string const name = u"D\\" + std::u16string(length - 2, u'u');
        world().processes.current.userName = name;
        EXPECT_EQ(GetCurrentUserName().size(), name.size());
        EXPECT_EQ(U8(GetCurrentUserName()), U8(name));
    }
}

// A failure is silent and leaves the name empty, so the pipe name is the prefix alone.
TEST_F(PipeNamesTest, UnknownUserGivesThePrefixAlone)
{
    world().processes.current.userName.clear();
    EXPECT_TRUE(GetCurrentUserName().empty());
    EXPECT_EQ(U8(PlugInPipeName()), "\\\\.\\pipe\\Tarnwick_PlugIn_");

    world().processes.current.userName = u"OFFICE\\clerk";
    world().faults.Fail("GetUserNameExW", 1355);  // ERROR_NO_SUCH_DOMAIN
    EXPECT_TRUE(GetCurrentUserName().empty());
    EXPECT_TRUE(EventIds().empty());
}

TEST_F(PipeNamesTest, OpeningThePlugInPipeReports33)
{
    auto plugIn = sim::ScriptedPipeServer::Create(u"\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk");
    plugIn->Start();
    EventReporter reporter(kCategoryUser);

    UniqueFileHandle pipe(OpenPlugInPipe(reporter));
    ASSERT_TRUE(pipe);
    EXPECT_EQ(plugIn->Connections(), 1);
    ASSERT_EQ(EventIds(), std::vector<DWORD>{MSG_CONNECTED_TO_PLUGIN_PIPE});
    sim::EventRecord const connected = OnlyEvent(MSG_CONNECTED_TO_PLUGIN_PIPE);
    EXPECT_EQ(connected.type, EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(connected.category, kCategoryUser);
    EXPECT_EQ(RenderedEvents().front(),
              "Connected to plug-in message pipe \\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_clerk.\r\n");
}

TEST_F(PipeNamesTest, AMissingPlugInPipeFailsSilently)
{
    EventReporter reporter(kCategoryUser);
    EXPECT_EQ(OpenPlugInPipe(reporter), INVALID_HANDLE_VALUE);
    EXPECT_EQ(os::GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(EventIds().empty());
}

// A plug-in serving another user's name is not this user's plug-in.
TEST_F(PipeNamesTest, ThePlugInOfAnotherUserIsNotOpened)
{
    auto other = sim::ScriptedPipeServer::Create(u"\\\\.\\pipe\\Tarnwick_PlugIn_OFFICE_boss");
    other->Start();
    EventReporter reporter(kCategoryUser);
    EXPECT_EQ(OpenPlugInPipe(reporter), INVALID_HANDLE_VALUE);
    EXPECT_EQ(other->Connections(), 0);
}

}  // namespace
}  // namespace hf::test
