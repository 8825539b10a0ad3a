// The service module on the simulated machine: the AppID decides between the
// service and the local server; the service reports its states and turns
// control requests into commands for the supervisor; the local server ends
// when its last COM reference goes.
#include "ServiceIdentity.h"
#include "SimTest.h"
#include "platform/Com.h"
#include "platform/Process.h"
#include "service/HotFolderModule.h"
#include "supervisor/CommandQueue.h"

namespace hf::test {
namespace {

constexpr char16_t kAppIdKey[] = u"AppID\\{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}";

class ServiceModuleTest : public SimTest {
protected:
    ServiceModuleTest() { world().registry.CreateKey(HKEY_CLASSES_ROOT, kAppIdKey); }

    // Registered as the service and started by the service control manager.
    sim::Service& StartedByTheManager()
    {
        world().registry.SetString(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService", kServiceName);
        world().services.dispatcherReachable = true;
        return world().services.Install(kServiceName);
    }

    // The commands queued for the supervisor, taken in order.
    std::vector<DWORD> QueuedCommands()
    {
        std::vector<DWORD> codes;
        HANDLE semaphore = TheCommandQueue().Semaphore();
        while (os::WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0) {
            codes.push_back(TheCommandQueue().Take().code);
        }
        return codes;
    }

    // The module's own log lines: information events of category 0 and id 0
    // without a user.
    std::vector<std::string> ModuleLog()
    {
        std::vector<std::string> lines;
        for (auto const& record : world().eventLog.WithId(0)) {
            EXPECT_EQ(record.type, EVENTLOG_INFORMATION_TYPE);
            EXPECT_EQ(record.category, 0);
            EXPECT_TRUE(record.userSid.empty());
            EXPECT_EQ(U8(record.source), "Tarnwick Hot Folders");
            lines.push_back(U8(record.strings.at(0)));
        }
        return lines;
    }
};

TEST_F(ServiceModuleTest, AServiceRunsUntilStoppedAndQueuesTheStopBeforeItReportsStopPending)
{
    sim::Service& service = StartedByTheManager();
    std::vector<std::string> seen;
    service.onStatus = [&](DWORD state) {
        auto const& objects = world().com.classObjects;
        if (state == SERVICE_RUNNING) {
            // Published before the service says it runs, resumed only afterwards.
            ASSERT_EQ(objects.size(), 1u);
            EXPECT_TRUE(os::SameGuid(objects[0].clsid, os::CLSID_FolderService));
            EXPECT_EQ(objects[0].classContext, 4u);
            EXPECT_EQ(objects[0].flags, 5u);
            EXPECT_TRUE(objects[0].suspended);
        }
        if (state == SERVICE_STOP_PENDING) {
            seen.push_back(QueuedCommands() == std::vector<DWORD>{CMD_STOP} ? "stop queued" : "stop missing");
        }
    };
    world().After(10, [&] {
        EXPECT_FALSE(world().com.classObjects.at(0).suspended) << "clients reach FolderService while the loop runs";
        service.handler(SERVICE_CONTROL_STOP);
    });

    EXPECT_EQ(TheModule().Start(1), 0);

    EXPECT_EQ(service.reportedStates, (std::vector<DWORD>{2, 4, 3, 1}));
    EXPECT_EQ(seen, std::vector<std::string>{"stop queued"});
    EXPECT_EQ(ModuleLog(), (std::vector<std::string>{"Service started/resumed", "Service stopped"}));
    EXPECT_TRUE(world().com.classObjects.empty()) << "revoked when the loop ended";
    EXPECT_EQ(world().com.apartments, 0);
    EXPECT_EQ(world().processes.current.standardOutput, "") << "a service logs to the event log only";
}

TEST_F(ServiceModuleTest, AStopThatComesTheMomentTheServiceRunsEndsItsLoop)
{
    sim::Service& service = StartedByTheManager();
    service.onStatus = [&](DWORD state) {
        if (state == SERVICE_RUNNING) {
            service.handler(SERVICE_CONTROL_STOP);
        }
    };

    EXPECT_EQ(TheModule().Start(1), 0);

    EXPECT_EQ(service.reportedStates, (std::vector<DWORD>{2, 4, 3, 1}));
    EXPECT_EQ(world().ExhaustedWaits(), 0) << "the loop ended on the stop's WM_QUIT, not for want of messages";
}

TEST_F(ServiceModuleTest, ControlRequestsBecomeCommandsWithoutChangingTheReportedState)
{
    sim::Service& service = StartedByTheManager();
    world().After(10, [&] {
        for (DWORD control : {SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_CONTINUE, SERVICE_CONTROL_INTERROGATE,
                              SERVICE_CONTROL_SHUTDOWN, DWORD{0x80}, SERVICE_CONTROL_STOP}) {
            service.handler(control);
        }
    });

    EXPECT_EQ(TheModule().Start(1), 0);

    EXPECT_EQ(QueuedCommands(), (std::vector<DWORD>{CMD_PAUSE, CMD_RUN, CMD_STOP}));
    EXPECT_EQ(service.reportedStates, (std::vector<DWORD>{2, 4, 3, 1}));
    EXPECT_EQ(ModuleLog(),
              (std::vector<std::string>{"Service started/resumed", "Bad service request", "Service stopped"}));
}

TEST_F(ServiceModuleTest, ALocalServerEndsWhenItsLastObjectIsReleased)
{
    world().After(10, [&] {
        void* object = nullptr;
        ASSERT_EQ(os::CoCreateInstance(os::CLSID_FolderService, nullptr, CLSCTX_LOCAL_SERVER, os::IID_IFolderService,
                                       &object),
                  S_OK);
        EXPECT_EQ(world().com.serverReferences, 1);
        static_cast<os::IFolderService*>(object)->Release();
    });
    DWORD const started = world().Ticks();

    EXPECT_EQ(TheModule().Start(1), 0);

    EXPECT_EQ(world().com.serverReferences, 0);
    EXPECT_TRUE(world().com.classObjects.empty());
    EXPECT_EQ(world().processes.threadsFinished, 1) << "the shutdown monitor posted the quit";
    EXPECT_EQ(world().Ticks() - started, 1010u) << "the loop pauses a second after revoking";
    EXPECT_TRUE(QueuedCommands().empty());
    EXPECT_TRUE(world().services.All().empty() || world().services.Find(kServiceName)->reportedStates.empty());
}

TEST_F(ServiceModuleTest, OnlyAProperLocalServiceStringMakesTheProcessAService)
{
    struct Case {
        DWORD type;
        std::vector<BYTE> data;
        bool service;
    };
    std::vector<BYTE> const terminated = {'T', 0, 'H', 0, 'F', 0, 0, 0};
    Case const cases[] = {
        {REG_SZ, terminated, true},
        {REG_EXPAND_SZ, terminated, true},
        {REG_SZ, {'T', 0, 'H', 0, 'F', 0}, false},
        {REG_BINARY, terminated, false},
        {REG_SZ, std::vector<BYTE>(600, 'x'), false},
    };
    for (auto const& c : cases) {
        NewProcess();
        world().registry.SetRaw(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService", c.type, c.data);
        // Started by hand: a service cannot reach the dispatcher (1063); a
        // local server runs its loop until the script ends (0).
        EXPECT_EQ(TheModule().Start(1), c.service ? 1063 : 0) << c.type << " " << c.data.size();
    }
}

TEST_F(ServiceModuleTest, WithoutTheAppIdTheStartFailsWithTheRegistrysError)
{
    world().registry.DeleteKeyTree(HKEY_CLASSES_ROOT, kAppIdKey);
    EXPECT_EQ(TheModule().Start(1), static_cast<LONG>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(world().com.classObjects.empty());
}

}  // namespace
}  // namespace hf::test
