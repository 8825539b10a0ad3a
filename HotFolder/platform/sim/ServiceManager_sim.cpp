#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/ServiceManager.h"
#include "platform/sim/SimWorld.h"

namespace hf::os {

namespace {

class ManagerHandle : public sim::Object {};

class ServiceHandle : public sim::Object {
public:
    explicit ServiceHandle(std::u16string name) : name(std::move(name)) {}
    std::u16string name;
};

// The service behind a handle, or null with ERROR_INVALID_HANDLE (a deleted
// service's handle still names it, so the lookup is by name).
sim::Service* ServiceOf(SC_HANDLE handle)
{
    auto open = sim::TheWorld().LookupAs<ServiceHandle>(handle);
    sim::Service* service = open ? sim::TheWorld().services.Find(open->name) : nullptr;
    if (service == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return service;
}

std::u16string Text(const WCHAR* text)
{
    return text ? std::u16string(text) : std::u16string();
}

}  // namespace

SC_HANDLE OpenSCManagerW(const WCHAR* /*machineName*/, const WCHAR* /*databaseName*/, DWORD /*access*/)
{
    if (DWORD error = 0; sim::Injected("OpenSCManagerW", error)) {
        return nullptr;
    }
    return sim::TheWorld().AddHandle(std::make_shared<ManagerHandle>());
}

SC_HANDLE OpenServiceW(SC_HANDLE /*manager*/, const WCHAR* serviceName, DWORD /*access*/)
{
    if (DWORD error = 0; sim::Injected("OpenServiceW", error)) {
        return nullptr;
    }
    if (sim::TheWorld().services.Find(Text(serviceName)) == nullptr) {
        SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    return sim::TheWorld().AddHandle(std::make_shared<ServiceHandle>(Text(serviceName)));
}

BOOL StartServiceW(SC_HANDLE service, DWORD /*numArgs*/, const WCHAR** /*args*/)
{
    if (DWORD error = 0; sim::Injected("StartServiceW", error)) {
        return 0;
    }
    sim::Service* target = ServiceOf(service);
    if (target == nullptr) {
        return 0;
    }
    if (target->state != SERVICE_STOPPED) {
        SetLastError(ERROR_SERVICE_ALREADY_RUNNING);
        return 0;
    }
    ++target->startRequests;
    target->state = SERVICE_RUNNING;
    return 1;
}

BOOL CloseServiceHandle(SC_HANDLE handle)
{
    if (!sim::TheWorld().CloseHandle(handle)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return 1;
}

SC_HANDLE CreateServiceW(SC_HANDLE /*manager*/, const WCHAR* serviceName, const WCHAR* displayName, DWORD /*access*/,
                         DWORD serviceType, DWORD startType, DWORD errorControl, const WCHAR* binaryPath,
                         const WCHAR* /*loadOrderGroup*/, DWORD* /*tagId*/, const WCHAR* dependencies,
                         const WCHAR* /*accountName*/, const WCHAR* /*password*/)
{
    if (DWORD error = 0; sim::Injected("CreateServiceW", error)) {
        return nullptr;
    }
    if (sim::TheWorld().services.Find(Text(serviceName)) != nullptr) {
        SetLastError(ERROR_SERVICE_EXISTS);
        return nullptr;
    }
    sim::Service& created = sim::TheWorld().services.Install(Text(serviceName));
    created.displayName = Text(displayName);
    created.serviceType = serviceType;
    created.startType = startType;
    created.errorControl = errorControl;
    created.binaryPath = Text(binaryPath);
    created.dependencies = Text(dependencies);
    return sim::TheWorld().AddHandle(std::make_shared<ServiceHandle>(Text(serviceName)));
}

BOOL ChangeServiceConfigW(SC_HANDLE service, DWORD serviceType, DWORD startType, DWORD errorControl,
                          const WCHAR* binaryPath, const WCHAR* /*loadOrderGroup*/, DWORD* /*tagId*/,
                          const WCHAR* dependencies, const WCHAR* /*accountName*/, const WCHAR* /*password*/,
                          const WCHAR* displayName)
{
    sim::Service* target = ServiceOf(service);
    if (target == nullptr) {
        return 0;
    }
    // SERVICE_NO_CHANGE or a null text keeps a setting.
    for (auto [field, value] : {std::pair{&target->serviceType, serviceType},
                                {&target->startType, startType},
                                {&target->errorControl, errorControl}}) {
        *field = value == SERVICE_NO_CHANGE ? *field : value;
    }
    for (auto [field, text] : {std::pair{&target->binaryPath, binaryPath},
                               {&target->dependencies, dependencies},
                               {&target->displayName, displayName}}) {
        *field = text ? std::u16string(text) : *field;
    }
    return 1;
}

BOOL ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status)
{
    sim::Service* target = ServiceOf(service);
    if (target == nullptr) {
        return 0;
    }
    // A service that is stopped, or already stopping, takes no stop.
    DWORD const refusal = target->state == SERVICE_STOPPED        ? ERROR_SERVICE_NOT_ACTIVE
                          : target->state == SERVICE_STOP_PENDING ? ERROR_SERVICE_CANNOT_ACCEPT_CTRL
                                                                  : 0;
    if (refusal == 0 && control == 1) {
        target->state = SERVICE_STOPPED;
    }
    if (status) {
        status->dwServiceType = target->serviceType;
        status->dwCurrentState = target->state;
    }
    if (refusal != 0) {
        SetLastError(refusal);
    }
    return refusal == 0;
}

BOOL DeleteService(SC_HANDLE service)
{
    if (DWORD error = 0; sim::Injected("DeleteService", error)) {
        return 0;
    }
    sim::Service* target = ServiceOf(service);
    if (target == nullptr) {
        return 0;
    }
    sim::TheWorld().services.Remove(target->name);
    return 1;
}

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table)
{
    if (!sim::TheWorld().services.dispatcherReachable) {
        SetLastError(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
        return 0;
    }
    WCHAR* argv[] = {table[0].lpServiceName, nullptr};
    table[0].lpServiceProc(1, argv);
    return 1;
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(const WCHAR* serviceName, LPHANDLER_FUNCTION handler)
{
    sim::Service* target = sim::TheWorld().services.Find(Text(serviceName));
    if (target == nullptr) {
        SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    target->handler = handler;
    return sim::TheWorld().AddHandle(std::make_shared<ServiceHandle>(Text(serviceName)));
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE statusHandle, SERVICE_STATUS* status)
{
    sim::Service* target = ServiceOf(statusHandle);
    if (target == nullptr || status == nullptr) {
        return 0;
    }
    target->state = status->dwCurrentState;
    target->reportedStates.push_back(status->dwCurrentState);
    if (target->onStatus) {
        target->onStatus(status->dwCurrentState);
    }
    return 1;
}

}  // namespace hf::os
