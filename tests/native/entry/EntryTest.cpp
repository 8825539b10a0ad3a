// The process entry, run whole on the simulated machine: what each command
// line does, what it reports and what it exits with.
#include "Entry.h"
#include "InstallUserAction.h"
#include "ServiceIdentity.h"
#include "SimTest.h"

#include <algorithm>

namespace hf::test {
namespace {

constexpr char16_t kExe[] = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";

class EntryTest : public SimTest {
protected:
    // The watcher role ran: it tried to announce itself to the service, which
    // is not registered here (message 52), watched its root (60) and ran its
    // loop until the test's script ended (32).
    bool WatcherRan() const
    {
        auto const ids = EventIds();
        return std::find(ids.begin(), ids.end(), MSG_INSTANTIATE_SERVICE_FAILED) != ids.end() &&
               std::find(ids.begin(), ids.end(), MSG_WATCHING_ROOT) != ids.end();
    }

    int Run(std::u16string const& arguments)
    {
        world().processes.current.commandLine = u"\"" + std::u16string(kExe) + u"\" " + arguments;
        return HotFolderMain(nullptr, 1);
    }
    // Registered as the service, as "-Service" leaves the AppID; started by
    // hand, the process then cannot reach the service dispatcher.
    void RegisterAsService()
    {
        world().registry.SetString(HKEY_CLASSES_ROOT, u"AppID\\" + std::u16string(kAppId), u"LocalService",
                                   kServiceName);
    }
    sim::Service& InstallService(DWORD state)
    {
        sim::Service& service = world().services.Install(kServiceName);
        service.state = state;
        return service;
    }
};

TEST_F(EntryTest, EveryRunBeginsWithTheRawCommandLine)
{
    for (auto const* arguments : {u"", u"-startservice", u"-currentuser", u"-RegServer", u"/asservice  x"}) {
        NewProcess();
        world().eventLog.Clear();
        std::u16string const line = u"\"" + std::u16string(kExe) + u"\" " + arguments;
        Run(arguments);
        ASSERT_FALSE(world().eventLog.Records().empty());
        sim::EventRecord const& first = world().eventLog.Records().front();
        EXPECT_EQ(first.eventId, MSG_LAUNCHED_WITH_COMMANDLINE);
        EXPECT_EQ(first.type, EVENTLOG_INFORMATION_TYPE);
        EXPECT_EQ(first.category, kCategoryUser);
        ASSERT_EQ(first.strings.size(), 1u);
        EXPECT_EQ(U8(first.strings[0]), U8(line));
        EXPECT_EQ(U8(sim::EventLog::Render(first)), "Launched with commandline:\r\n" + U8(line) + "\r\n");
    }
}

TEST_F(EntryTest, StartServiceWithoutAnInstalledServiceExitsZeroWithMessage56)
{
    EXPECT_EQ(Run(u"-startservice"), 0);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_LAUNCHED_WITH_COMMANDLINE, MSG_OPEN_SERVICE_FAILED}));
    sim::EventRecord const failure = OnlyEvent(MSG_OPEN_SERVICE_FAILED);
    EXPECT_EQ(failure.type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(RenderedEvents().back(), "Failed to open the service Tarnwick Hot Folders.  Error code: 1060\r\n");
    EXPECT_EQ(HandlesLeftOpen(), 0) << "the manager handle is closed";
}

TEST_F(EntryTest, StartServiceWhenTheManagerCannotBeOpenedExitsZeroWithMessage55)
{
    world().faults.Fail("OpenSCManagerW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-startservice"), 0);
    EXPECT_EQ(RenderedEvents().back(), "Failed to open the service control manager.  Error code: 5\r\n");
}

TEST_F(EntryTest, StartServiceExitsOneWhenTheStartIsAccepted)
{
    sim::Service& service = InstallService(1);
    EXPECT_EQ(Run(u"-startservice"), 1);
    EXPECT_EQ(service.startRequests, 1);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_LAUNCHED_WITH_COMMANDLINE}));
    EXPECT_EQ(HandlesLeftOpen(), 0);
}

TEST_F(EntryTest, StartServiceOfARunningServiceExitsZeroSilently)
{
    sim::Service& service = InstallService(4);
    EXPECT_EQ(Run(u"-startservice"), 0);
    EXPECT_EQ(service.startRequests, 0);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_LAUNCHED_WITH_COMMANDLINE}));
}

TEST_F(EntryTest, StartServiceThatFailsReportsMessage57AndExitsZero)
{
    InstallService(1);
    world().faults.Fail("StartServiceW", ERROR_SERVICE_DISABLED);
    EXPECT_EQ(Run(u"-installuser -startservice -currentuser"), 0);
    EXPECT_EQ(RenderedEvents().back(), "Failed to start the service Tarnwick Hot Folders.  Error code: 1058\r\n");
    EXPECT_FALSE(world().registry.Value(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName)) << "no Run value";
    EXPECT_EQ(world().processes.threadsCreated, 0);
}

TEST_F(EntryTest, InstallUserWritesTheRunValueAndRunsTheWatcher)
{
    world().registry.CreateKey(HKEY_CURRENT_USER, kRunKeyPath);
    EXPECT_EQ(Run(u"-installuser"), 0);
    auto const value = world().registry.Value(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->type, REG_SZ);
    std::u16string const expected = u"\"" + std::u16string(kExe) + u"\" -currentuser";
    EXPECT_EQ(value->data.size(), (expected.size() + 1) * 2) << "the size counts the terminating null";
    EXPECT_EQ(U8(*world().registry.String(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName)), U8(expected));
    EXPECT_TRUE(WatcherRan());
    EXPECT_EQ(world().processes.threadsCreated, 0) << "the watcher role starts no supervisor";
}

TEST_F(EntryTest, InstallUserOverwritesAnEarlierRunValue)
{
    world().registry.SetString(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName, u"old");
    Run(u"-installuser");
    EXPECT_EQ(U8(*world().registry.String(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName)),
              "\"" + U8(kExe) + "\" -currentuser");
}

TEST_F(EntryTest, InstallUserWithoutARunKeyReports47AndStillRunsTheWatcher)
{
    EXPECT_EQ(Run(u"-installuser"), 0);
    EXPECT_EQ(U8(sim::EventLog::Render(OnlyEvent(MSG_OPEN_REGISTRY_KEY_FAILED))),
              "Failed to open registry key Software\\Microsoft\\Windows\\CurrentVersion\\Run.  Error code: 2\r\n");
    EXPECT_FALSE(world().registry.KeyExists(HKEY_CURRENT_USER, kRunKeyPath)) << "the key is never created";
    EXPECT_TRUE(WatcherRan());
    EXPECT_EQ(world().processes.threadsCreated, 0);
}

TEST_F(EntryTest, InstallUserThatCannotWriteReports53)
{
    world().registry.CreateKey(HKEY_CURRENT_USER, kRunKeyPath);
    world().faults.Fail("RegSetValueExW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-installuser"), 0);
    EXPECT_TRUE(WatcherRan());
    EXPECT_EQ(U8(sim::EventLog::Render(OnlyEvent(MSG_WRITE_REGISTRY_VALUE_FAILED))),
              "Failed to write registry key Software\\Microsoft\\Windows\\CurrentVersion\\Run, value Tarnwick Hot "
              "Folder Watcher.  Error code: 5\r\n");
    EXPECT_FALSE(world().registry.Value(HKEY_CURRENT_USER, kRunKeyPath, kRunValueName));
}

TEST_F(EntryTest, ServicePathStartsTheSupervisorAndReports58WhenTheServiceCannotRun)
{
    RegisterAsService();
    EXPECT_EQ(Run(u"-pause -asuser:DOMAIN\\name"), 1063);
    EXPECT_EQ(world().processes.threadsCreated, 1);
    EXPECT_EQ(world().processes.threadsFinished, 1) << "the posted stop ended the supervisor";
    sim::EventRecord const failure = OnlyEvent(MSG_SERVICE_RUN_FAILED);
    EXPECT_EQ(failure.category, kCategoryService);
    EXPECT_EQ(failure.type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(U8(sim::EventLog::Render(failure)), "Failed to start the service.  Error code: 1063\r\n");
    EXPECT_EQ(world().eventLog.openSources, 0) << "the entry's reporters and the supervisor's are closed";
    EXPECT_EQ(HandlesLeftOpen(), 0);
}

TEST_F(EntryTest, ServicePathWithoutASupervisorThreadStillEnds)
{
    RegisterAsService();
    world().faults.Fail("CreateThread", ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Run(u""), 1063);
    EXPECT_EQ(world().processes.threadsCreated, 0);
}

TEST_F(EntryTest, ReportsCarryTheProcessOwnerAsUser)
{
    world().processes.current.ownerSid = u"S-1-5-21-1-2-3-500";
    Run(u"-startservice");
    for (auto const& record : world().eventLog.Records()) {
        EXPECT_EQ(U8(record.userSid), "S-1-5-21-1-2-3-500");
    }
}

TEST_F(EntryTest, ReportsGoWithoutUserWhenTheOwnerCannotBeRead)
{
    world().faults.Fail("GetSecurityInfo", ERROR_ACCESS_DENIED);
    Run(u"-startservice");
    ASSERT_FALSE(world().eventLog.Records().empty());
    EXPECT_TRUE(world().eventLog.Records().front().userSid.empty());
}

TEST_F(EntryTest, AnUnregisteredSourceReportsNothingAndTheRunGoesOn)
{
    world().faults.Fail("RegisterEventSourceW", ERROR_ACCESS_DENIED);
    InstallService(1);
    EXPECT_EQ(Run(u"-startservice"), 1);
    EXPECT_TRUE(world().eventLog.Records().empty());
}

}  // namespace
}  // namespace hf::test
