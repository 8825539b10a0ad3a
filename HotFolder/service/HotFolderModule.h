// The process-wide module object of the service role: it decides between
// running as the Windows service and as a plain COM local server, talks to the
// service control manager, publishes the FolderService class and runs the
// message loop that keeps the server alive. A stop request becomes CMD_STOP on
// the command queue before the loop is told to quit.
#pragma once

#include "platform/Com.h"
#include "platform/ServiceManager.h"
#include "platform/Sync.h"
#include "platform/Types.h"
#include "service/RegistryScript.h"

#include <atomic>
#include <string>
#include <string_view>

namespace hf {

class CHotFolderModule {
public:
    CHotFolderModule();
    // Tells each class that the module is ending; the module's lock goes with it.
    virtual ~CHotFolderModule();
    CHotFolderModule(const CHotFolderModule&) = delete;
    CHotFolderModule& operator=(const CHotFolderModule&) = delete;

    // A server reference, held by every FolderService object and by a locked
    // class object (CoAddRefServerProcess); the new count.
    virtual LONG AddServerReference();
    // As a service only the lock count goes down. As a local server the last
    // reference ends the server: the shutdown monitor (or, without one, the
    // message loop itself) is told to quit.
    virtual LONG ReleaseServerReference();
    virtual LONG LockCount();
    // The system's global interface table, created on first use; one more
    // reference for the caller. E_POINTER for a null out-pointer.
    virtual HRESULT GlobalInterfaceTable(os::IUnknown** table);
    // The replacements every registration table may use: APPID.
    virtual void AddCommonReplacements(RegistryReplacements& replacements);

    // True when the module's static initialisation failed; the entry then ends with -1.
    bool InitializationFailed() const { return initializationFailed_; }

    // Runs the service (or the local server) to its end; 0 on success, else a
    // Win32 error code or HRESULT. The AppID's "LocalService" value decides.
    LONG Start(int showWindow);

    // The module's own log line: standard output when not running as a service,
    // and an information event (category 0, id 0, no user) from a source
    // registered for this one report.
    void Log(std::u16string_view text);

    std::u16string const& ServiceName() const { return serviceName_; }

    // Written by the entry when it starts the supervisor thread; nothing reads it.
    DWORD supervisorThreadId = 0;

private:
    static void ServiceMainEntry(DWORD argc, WCHAR** argv);
    static void HandlerEntry(DWORD control);
    static DWORD ShutdownMonitorEntry(void* module);

    void ServiceMain();
    void Handler(DWORD control);
    HRESULT RunMessageLoop();
    HRESULT RegisterClassObjects();
    HRESULT RevokeClassObjects();
    void ShutdownMonitor();
    void ReportState(DWORD state);

    std::u16string serviceName_;
    bool initializationFailed_ = false;
    std::atomic<LONG> lockCount_{0};
    os::CriticalSection lock_;
    DWORD mainThreadId_;
    HANDLE shutdownEvent_ = nullptr;
    DWORD timeout_ = 5000;
    DWORD pause_ = 1000;
    bool delayShutdown_ = true;
    bool activity_ = false;
    bool comInitialized_ = false;
    os::SERVICE_STATUS_HANDLE statusHandle_ = nullptr;
    os::SERVICE_STATUS status_;
    std::atomic<DWORD> state_;
    bool runAsService_ = true;
    DWORD serviceThreadId_ = 0;
    os::IUnknown* globalInterfaceTable_ = nullptr;
    DWORD folderServiceCookie_ = 0;
};

// The one module of the process, built during static initialisation.
CHotFolderModule& TheModule();

// Builds the module afresh. A simulated test run is a fresh process each time;
// a real process never calls it.
void RecreateModule();

}  // namespace hf
