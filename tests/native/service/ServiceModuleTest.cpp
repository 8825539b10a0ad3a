// The service module as a service and as a local server, and FolderService's objects.
#include "ServiceIdentity.h"
#include "SimTest.h"
#include "platform/Com.h"
#include "platform/Process.h"
#include "service/FolderService.h"
#include "supervisor/BinaryValueReader.h"
#include "supervisor/PasswordProtection.h"
#include "supervisor/UserStore.h"

#include <algorithm>

namespace hf::test {
namespace {

constexpr char16_t kAppIdKey[] = u"AppID\\{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}";
using Commands = std::vector<std::pair<DWORD, std::string>>;

// The commands queued for the supervisor, taken in order, with their arguments.
Commands Queued()
{
    Commands commands;
    while (os::WaitForSingleObject(TheCommandQueue().Semaphore(), 0) == WAIT_OBJECT_0) {
        Command const command = TheCommandQueue().Take();
        commands.emplace_back(command.code, U8(command.argument));
    }
    return commands;
}

using ServiceModuleTest = SimTest;

// Registered as the service and started by the manager: the class object is published suspended until the
// service runs; pause and continue become commands, other requests change nothing or are logged; the stop
// is queued before stop-pending is reported and ends the loop, even the moment the service runs.
TEST_F(ServiceModuleTest, AServiceRunsUntilStoppedAndTurnsRequestsIntoCommands)
{
    world().registry.SetString(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService", kServiceName);
    world().services.dispatcherReachable = true;
    sim::Service& service = world().services.Install(kServiceName);
    Commands atStopPending;
    service.onStatus = [&](DWORD state) {
        auto const& published = world().com.classObjects;
        if (state == SERVICE_RUNNING) {
            EXPECT_TRUE(published.size() == 1 && published[0].suspended &&
                        os::SameGuid(published[0].clsid, os::CLSID_FolderService));
            for (DWORD control : {SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_CONTINUE, SERVICE_CONTROL_INTERROGATE,
                                  SERVICE_CONTROL_SHUTDOWN, DWORD{0x80}, SERVICE_CONTROL_STOP}) {
                service.handler(control);
            }
        }
        atStopPending = state == SERVICE_STOP_PENDING ? Queued() : atStopPending;
    };

    EXPECT_EQ(TheModule().Start(1), 0);
    EXPECT_EQ(world().ExhaustedWaits(), 0) << "the loop ended on the stop's WM_QUIT, not for want of messages";
    EXPECT_EQ(service.reportedStates, (std::vector<DWORD>{2, 4, 3, 1}));
    EXPECT_EQ(atStopPending, (Commands{{CMD_PAUSE, ""}, {CMD_RUN, ""}, {CMD_STOP, ""}}));
    std::string log;  // id, category, type, user, source, text
    for (auto const& r : world().eventLog.Records()) {
        log += std::to_string(r.eventId * 100 + r.category * 10 + r.type) + U8(r.userSid + u" " + r.source) + ": " +
               U8(r.strings.at(0)) + "\n";
    }
    EXPECT_EQ(log,
              "4 Tarnwick Hot Folders: Service started/resumed\n4 Tarnwick Hot Folders: Bad service request\n"
              "4 Tarnwick Hot Folders: Service stopped\n");
    EXPECT_TRUE(world().com.classObjects.empty() && world().com.apartments == 0) << "revoked when the loop ended";
    EXPECT_EQ(world().processes.current.standardOutput, "") << "a service logs to the event log only";
}

// Only a terminated LocalService string makes a service (by hand it cannot reach the dispatcher: 1063);
// a local server serves FolderService and runs until a second after its last object is released.
TEST_F(ServiceModuleTest, ALocalServerEndsASecondAfterItsLastObjectIsReleased)
{
    std::vector<BYTE> const ended = {'T', 0, 'H', 0, 'F', 0, 0, 0}, open = {'T', 0, 'H', 0}, big(600, 0);
    for (auto const& [type, data] :
         {std::pair{REG_SZ, ended}, {REG_EXPAND_SZ, ended}, {REG_SZ, open}, {REG_BINARY, ended}, {REG_SZ, big}}) {
        NewProcess();
        world().registry.SetRaw(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService", type, data);
        EXPECT_EQ(TheModule().Start(1), type != REG_BINARY && data.size() == 8 ? 1063 : 0)
            << type << " " << data.size();
    }

    // As a local server (the last row's), two clients come at 10 ms; one goes at once, the other at 20 ms or, kept,
    // not before the script runs out.
    for (bool keepOne : {true, false}) {
        NewProcess();
        void* objects[2] = {};
        auto release = [&](int which) { static_cast<os::IFolderService*>(objects[which])->Release(); };
        world().After(10, [&] {
            for (void*& object : objects) {
                ASSERT_EQ(os::CoCreateInstance(os::CLSID_FolderService, nullptr, CLSCTX_LOCAL_SERVER,
                                               os::IID_IFolderService, &object),
                          S_OK);
            }
            release(0);
        });
        if (!keepOne) {
            world().After(20, [&] { release(1); });
        }
        DWORD const started = world().Ticks();
        int const exhausted = world().ExhaustedWaits();
        EXPECT_EQ(TheModule().Start(1), 0);
        EXPECT_EQ(world().Ticks() - started, keepOne ? 1010u : 1020u);
        // The shutdown monitor runs once the script has run out; with a client kept, it waited for it in vain.
        EXPECT_EQ(world().ExhaustedWaits() - exhausted, keepOne ? 2 : 1);
        if (keepOne) {
            release(1);
        }
        EXPECT_TRUE(world().com.serverReferences == 0 && world().com.classObjects.empty() && Queued().empty());
    }
}

using ServicePtr = std::unique_ptr<os::IFolderService, void (*)(os::IUnknown*)>;

ServicePtr CreateFolderService(os::IUnknown* outer = nullptr, HRESULT expected = S_OK)
{
    void* object = nullptr;
    EXPECT_EQ(FolderServiceClassObject()->CreateInstance(outer, os::IID_IFolderService, &object), expected);
    return ServicePtr(static_cast<os::IFolderService*>(object), [](os::IUnknown* unknown) { unknown->Release(); });
}

// Each object holds a server reference; as a service the module gives back only its own lock count. A pipe
// name is queued up to its first null. The store's Win32 results come back as HRESULTs; a failed query
// leaves the caller's answer alone; the whole password, nulls and all, is sealed. Aggregated, the caller
// must ask for IUnknown, and the inner object ends with its own last reference.
TEST_F(ServiceModuleTest, FolderServiceObjectsQueueConnectRequestsAndKeepUsersInTheStore)
{
    std::vector<os::BSTR> texts;
    auto bstr = [&](std::u16string const& text) {
        return texts.emplace_back(os::SysAllocStringLen(text.data(), static_cast<unsigned>(text.size())));
    };
    os::BSTR const clerk = bstr(u"OFFICE\\clerk");
    {
        ServicePtr service = CreateFolderService();
        ServicePtr second = CreateFolderService();
        EXPECT_EQ(service->ConnectWatcher(bstr(std::u16string(u"\\\\.\\pipe\\W_A_b\0tail", 19))), S_OK);
        EXPECT_EQ(service->ConnectWatcher(nullptr), S_OK);
        EXPECT_EQ(Queued(), (Commands{{CMD_CONNECT, "\\\\.\\pipe\\W_A_b"}, {CMD_CONNECT, ""}}));

        std::u16string const password(u"pa\0ss\0", 6);
        EXPECT_EQ(service->InstallUser(clerk, bstr(password)), S_OK);
        os::VARIANT_BOOL installed = 7;
        EXPECT_EQ((std::pair{service->IsUserInstalled(clerk, &installed), installed}), std::pair(S_OK, VARIANT_TRUE));
        EventReporter events(kCategoryService);
        BinaryValueReader const value(UserStore::Open().key(), clerk);
        auto opened = UnprotectPassword(clerk, value.data(), value.size(), events);
        ASSERT_TRUE(opened);
        EXPECT_EQ(std::u16string(opened->password().c_str(), opened->password().length()), password);
        EXPECT_EQ(service->UninstallUser(clerk), S_OK);

        world().registry.SetString(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, u"OFFICE\\typed", u"not binary");
        installed = 7;  // a failed query leaves the caller's answer alone
        EXPECT_EQ(service->IsUserInstalled(bstr(u"OFFICE\\typed"), &installed), static_cast<HRESULT>(0x8007000Du));
        world().faults.Fail("RegCreateKeyExW", ERROR_ACCESS_DENIED, 3);
        HRESULT const denied = static_cast<HRESULT>(0x80070005u);
        EXPECT_EQ((std::vector{service->IsUserInstalled(clerk, &installed), service->InstallUser(clerk, clerk),
                               service->UninstallUser(clerk), HRESULT{installed}}),
                  (std::vector<HRESULT>{denied, denied, denied, 7}));
        EXPECT_FALSE(world().registry.Value(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, clerk));
    }
    EXPECT_EQ((std::pair<long, long>(world().com.serverReferences, TheModule().LockCount())),
              (std::pair<long, long>(2, -2)));

    ServicePtr outer = CreateFolderService();
    EXPECT_EQ(CreateFolderService(outer.get(), CLASS_E_NOAGGREGATION), nullptr);
    void* inner = nullptr;
    ASSERT_EQ(FolderServiceClassObject()->CreateInstance(outer.get(), os::IID_IUnknown, &inner), S_OK);
    void* delegating = nullptr;  // its references count on the controlling object
    ASSERT_EQ(static_cast<os::IUnknown*>(inner)->QueryInterface(os::IID_IFolderService, &delegating), S_OK);
    static_cast<os::IFolderService*>(delegating)->Release();
    int const locks = TheModule().LockCount();
    static_cast<os::IUnknown*>(inner)->Release();
    EXPECT_EQ(TheModule().LockCount(), locks - 1) << "the inner object ends with its own last reference";
    std::for_each(texts.begin(), texts.end(), os::SysFreeString);
}

}  // namespace
}  // namespace hf::test
