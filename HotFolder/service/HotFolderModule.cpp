#include "service/HotFolderModule.h"

#include "ServiceIdentity.h"
#include "WideText.h"
#include "platform/Clock.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/EventLog.h"
#include "platform/Files.h"
#include "platform/MessageLoop.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/UniqueHandle.h"
#include "service/FolderService.h"
#include "service/Registration.h"
#include "supervisor/CommandQueue.h"

#include <array>
#include <memory>

namespace hf {

namespace {

constexpr DWORD kMaxPath = 260;
constexpr std::size_t kServiceNameCapacity = 256;
constexpr std::size_t kLogCapacity = 256;

std::u16string LoadServiceName()
{
    std::array<WCHAR, kServiceNameCapacity> name{};
    int const length = os::LoadStringW(os::GetModuleHandleW(nullptr), kServiceNameResourceId, name.data(),
                                       static_cast<int>(name.size()));
    return std::u16string(name.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
}

// COM initialisation may meet an apartment that the .NET runtime has already
// set up in this process; the server then runs in it all the same.
bool ApartmentSetByDotNet(HRESULT result)
{
    return result == RPC_E_CHANGED_MODE && os::GetModuleHandleW(u"Mscoree.dll") != nullptr;
}

// The AppID names the service to run as: "LocalService" counts only as a
// properly terminated string.
bool HasLocalService(HKEY appId)
{
    std::array<WCHAR, kMaxPath> value{};
    DWORD type = 0;
    DWORD size = static_cast<DWORD>(value.size() * sizeof(WCHAR));
    LONG const read =
        os::RegQueryValueExW(appId, u"LocalService", nullptr, &type, reinterpret_cast<BYTE*>(value.data()), &size);
    std::size_t const characters = size / sizeof(WCHAR);
    return read == 0 && (type == REG_SZ || type == REG_EXPAND_SZ) && size % sizeof(WCHAR) == 0 && characters > 0 &&
           value[characters - 1] == 0;
}

}  // namespace

CHotFolderModule::CHotFolderModule() : serviceName_(LoadServiceName()), mainThreadId_(os::GetCurrentThreadId())
{
    status_.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status_.dwCurrentState = SERVICE_STOPPED;
    status_.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    state_ = SERVICE_STOPPED;
}

// The global interface table is left to the end of the process, when COM may
// already be gone.
CHotFolderModule::~CHotFolderModule()
{
    EndFolderServiceClass();
}

LONG CHotFolderModule::AddServerReference()
{
    return static_cast<LONG>(os::CoAddRefServerProcess());
}

LONG CHotFolderModule::ReleaseServerReference()
{
    if (runAsService_) {
        return --lockCount_;
    }
    auto const left = static_cast<LONG>(os::CoReleaseServerProcess());
    if (left == 0) {
        if (delayShutdown_) {
            activity_ = true;
            os::SetEvent(shutdownEvent_);
        } else {
            os::PostThreadMessageW(mainThreadId_, WM_QUIT, 0, 0);
        }
    }
    return left;
}

LONG CHotFolderModule::LockCount()
{
    return lockCount_;
}

HRESULT CHotFolderModule::GlobalInterfaceTable(os::IUnknown** table)
{
    if (table == nullptr) {
        return E_POINTER;
    }
    *table = nullptr;
    HRESULT result = S_OK;
    lock_.Enter();
    if (globalInterfaceTable_ == nullptr) {
        void* created = nullptr;
        result = os::CoCreateInstance(os::CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                      os::IID_IGlobalInterfaceTable, &created);
        globalInterfaceTable_ = static_cast<os::IUnknown*>(created);
    }
    if (globalInterfaceTable_ != nullptr) {
        globalInterfaceTable_->AddRef();
        *table = globalInterfaceTable_;
    }
    lock_.Leave();
    return result;
}

void CHotFolderModule::AddCommonReplacements(RegistryReplacements& replacements)
{
    replacements[u"APPID"] = kAppId;
}

void CHotFolderModule::Log(std::u16string_view text)
{
    std::u16string const line(text.substr(0, kLogCapacity - 1));
    if (!runAsService_) {
        if (HANDLE const output = os::GetStdHandle(STD_OUTPUT_HANDLE)) {
            std::string const bytes = ToUtf8(line) + "\n";
            DWORD written = 0;
            os::WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
        }
    }
    UniqueEventSource source(os::RegisterEventSourceW(nullptr, serviceName_.c_str()));
    if (source) {
        const WCHAR* strings[] = {line.c_str()};
        os::ReportEventW(source.get(), EVENTLOG_INFORMATION_TYPE, 0, 0, nullptr, 1, 0, strings, nullptr);
    }
}

LONG CHotFolderModule::Start(int /*showWindow*/)
{
    UniqueRegistryKey appId;
    if (LONG const opened = OpenAppIdKey(KEY_READ, appId); opened != 0) {
        status_.dwWin32ExitCode = static_cast<DWORD>(opened);
        return opened;
    }
    bool const localService = HasLocalService(appId.get());
    appId.reset();

    if (localService) {
        runAsService_ = true;
        std::u16string name = serviceName_;
        os::SERVICE_TABLE_ENTRYW const table[] = {{name.data(), &ServiceMainEntry}, {nullptr, nullptr}};
        if (!os::StartServiceCtrlDispatcherW(table)) {
            status_.dwWin32ExitCode = os::GetLastError();
        }
        return static_cast<LONG>(status_.dwWin32ExitCode);
    }
    runAsService_ = false;
    HRESULT const initialized = os::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (initialized < 0 && !ApartmentSetByDotNet(initialized)) {
        return initialized;
    }
    comInitialized_ = initialized >= 0;
    status_.dwWin32ExitCode = static_cast<DWORD>(RunMessageLoop());
    return static_cast<LONG>(status_.dwWin32ExitCode);
}

void CHotFolderModule::ServiceMainEntry(DWORD /*argc*/, WCHAR** /*argv*/)
{
    TheModule().ServiceMain();
}

void CHotFolderModule::HandlerEntry(DWORD control)
{
    TheModule().Handler(control);
}

DWORD CHotFolderModule::ShutdownMonitorEntry(void* module)
{
    static_cast<CHotFolderModule*>(module)->ShutdownMonitor();
    return 0;
}

void CHotFolderModule::ReportState(DWORD state)
{
    os::SERVICE_STATUS report = status_;
    report.dwCurrentState = state;
    os::SetServiceStatus(statusHandle_, &report);
}

void CHotFolderModule::ServiceMain()
{
    state_ = SERVICE_START_PENDING;
    serviceThreadId_ = os::GetCurrentThreadId();
    // A thread gets its message queue only when it first looks for a message.
    // Make it now: a stop that arrives before the loop's first GetMessageW
    // must find the queue for its WM_QUIT, or the loop would never end.
    os::MSG none;
    os::PeekMessageW(&none, nullptr, 0, 0, PM_NOREMOVE);
    statusHandle_ = os::RegisterServiceCtrlHandlerW(serviceName_.c_str(), &HandlerEntry);
    if (statusHandle_ == nullptr) {
        Log(u"Handler not installed");
        return;
    }
    ReportState(SERVICE_START_PENDING);
    status_.dwWin32ExitCode = 0;
    status_.dwCheckPoint = 0;
    status_.dwWaitHint = 0;

    HRESULT const initialized = os::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (initialized < 0 && !ApartmentSetByDotNet(initialized)) {
        return;
    }
    comInitialized_ = initialized >= 0;
    // A service never shuts itself down when its last COM client goes.
    delayShutdown_ = false;
    status_.dwWin32ExitCode = static_cast<DWORD>(RunMessageLoop());
    if (runAsService_ && comInitialized_) {
        os::CoUninitialize();
    }
    state_.exchange(SERVICE_STOPPED);
    ReportState(SERVICE_STOPPED);
    Log(u"Service stopped");
}

// Only stop is declared as accepted, so the manager itself refuses pause and
// continue; delivered all the same, they become the watchers' pause and run.
void CHotFolderModule::Handler(DWORD control)
{
    switch (control) {
        case SERVICE_CONTROL_STOP:
            TheCommandQueue().Post(Command{CMD_STOP, {}});
            state_.exchange(SERVICE_STOP_PENDING);
            ReportState(SERVICE_STOP_PENDING);
            os::PostThreadMessageW(serviceThreadId_, WM_QUIT, 0, 0);
            break;
        case SERVICE_CONTROL_PAUSE:
            TheCommandQueue().Post(Command{CMD_PAUSE, {}});
            break;
        case SERVICE_CONTROL_CONTINUE:
            TheCommandQueue().Post(Command{CMD_RUN, {}});
            break;
        case SERVICE_CONTROL_INTERROGATE:
        case SERVICE_CONTROL_SHUTDOWN:
            break;
        default:
            Log(u"Bad service request");
            break;
    }
}

HRESULT CHotFolderModule::RegisterClassObjects()
{
    return os::CoRegisterClassObject(os::CLSID_FolderService, FolderServiceClassObject(), CLSCTX_LOCAL_SERVER,
                                     REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED, &folderServiceCookie_);
}

HRESULT CHotFolderModule::RevokeClassObjects()
{
    return os::CoRevokeClassObject(folderServiceCookie_);
}

HRESULT CHotFolderModule::RunMessageLoop()
{
    HRESULT result = RegisterClassObjects();
    if (result != S_OK) {
        return result;
    }
    UniqueKernelHandle monitor;
    if (delayShutdown_) {
        shutdownEvent_ = os::CreateEventW(nullptr, FALSE, FALSE, nullptr);
        if (shutdownEvent_ != nullptr) {
            monitor.reset(os::CreateThread(nullptr, 0, &ShutdownMonitorEntry, this, 0, nullptr));
        }
        if (!monitor) {
            if (shutdownEvent_ != nullptr) {
                os::CloseHandle(shutdownEvent_);
                shutdownEvent_ = nullptr;
            }
            RevokeClassObjects();
            return E_FAIL;
        }
    }
    DWORD expected = SERVICE_START_PENDING;
    if (runAsService_ && state_.compare_exchange_strong(expected, SERVICE_RUNNING)) {
        Log(u"Service started/resumed");
        ReportState(SERVICE_RUNNING);
    }
    result = os::CoResumeClassObjects();
    if (result != S_OK) {
        if (delayShutdown_) {
            // The monitor ends once its event is set; a service has no monitor.
            os::SetEvent(shutdownEvent_);
            os::WaitForSingleObject(monitor.get(), timeout_ * 2);
        }
        RevokeClassObjects();
        return result;
    }
    os::MSG message;
    while (os::GetMessageW(&message, nullptr, 0, 0) > 0) {
        os::TranslateMessage(&message);
        os::DispatchMessageW(&message);
    }
    result = RevokeClassObjects();
    if (delayShutdown_) {
        os::Sleep(pause_);
    }
    return result;
}

void CHotFolderModule::ShutdownMonitor()
{
    os::WaitForSingleObject(shutdownEvent_, INFINITE);
    os::CloseHandle(shutdownEvent_);
    shutdownEvent_ = nullptr;
    os::PostThreadMessageW(mainThreadId_, WM_QUIT, 0, 0);
}

namespace {

std::unique_ptr<CHotFolderModule> processModule = std::make_unique<CHotFolderModule>();

}  // namespace

CHotFolderModule& TheModule()
{
    return *processModule;
}

void RecreateModule()
{
    processModule.reset();
    processModule = std::make_unique<CHotFolderModule>();
}

}  // namespace hf
