#include "service/ServiceInstaller.h"

#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/EventLog.h"
#include "platform/MessageLoop.h"
#include "platform/Process.h"
#include "platform/ServiceManager.h"
#include "platform/UniqueHandle.h"

#include <array>

namespace hf {

namespace {

constexpr DWORD kMaxPath = 260;

struct MessageText {
    unsigned id;
    const char16_t* text;
};
constexpr MessageText kCouldNotOpenManager = {55306, u"Could not open Service Manager"};
constexpr MessageText kCouldNotCreate = {55307, u"Could not start service"};
constexpr MessageText kCouldNotOpenService = {55308, u"Could not open service"};
constexpr MessageText kCouldNotDelete = {55309, u"Could not delete service"};
constexpr MessageText kCouldNotStop = {55310, u"Could not stop service"};

// The text comes from the string table when the executable has it, else the
// built-in one.
void ShowMessage(MessageText const& message, std::u16string const& caption)
{
    std::array<WCHAR, 256> buffer{};
    int const length =
        os::LoadStringW(os::GetModuleHandleW(nullptr), message.id, buffer.data(), static_cast<int>(buffer.size()));
    std::u16string const text = length > 0 ? std::u16string(buffer.data(), length) : message.text;
    os::MessageBoxW(nullptr, text.c_str(), caption.c_str(), MB_OK);
}

}  // namespace

std::u16string ExecutablePath()
{
    std::array<WCHAR, kMaxPath> path{};
    DWORD const length = os::GetModuleFileNameW(nullptr, path.data(), kMaxPath);
    if (length == 0 || length >= kMaxPath) {
        return {};
    }
    return std::u16string(path.data(), length);
}

bool IsServiceInstalled(std::u16string const& serviceName)
{
    UniqueServiceHandle manager(os::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        return false;
    }
    UniqueServiceHandle service(os::OpenServiceW(manager.get(), serviceName.c_str(), SERVICE_QUERY_CONFIG));
    return service.valid();
}

bool InstallService(std::u16string const& serviceName)
{
    if (IsServiceInstalled(serviceName)) {
        return true;
    }
    UniqueServiceHandle manager(os::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ShowMessage(kCouldNotOpenManager, serviceName);
        return false;
    }
    std::u16string const binaryPath = u"\"" + ExecutablePath() + u"\"";
    UniqueServiceHandle service(os::CreateServiceW(manager.get(), serviceName.c_str(), serviceName.c_str(),
                                                   SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                                   SERVICE_ERROR_NORMAL, binaryPath.c_str(), nullptr, nullptr,
                                                   kServiceDependencies, nullptr, nullptr));
    if (!service) {
        ShowMessage(kCouldNotCreate, serviceName);
        return false;
    }
    return true;
}

bool UninstallService(std::u16string const& serviceName)
{
    if (!IsServiceInstalled(serviceName)) {
        return true;
    }
    UniqueServiceHandle manager(os::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ShowMessage(kCouldNotOpenManager, serviceName);
        return false;
    }
    UniqueServiceHandle service(os::OpenServiceW(manager.get(), serviceName.c_str(), SERVICE_STOP | DELETE));
    if (!service) {
        ShowMessage(kCouldNotOpenService, serviceName);
        return false;
    }
    // A service that is not running, or one already stopping, needs no stop.
    os::SERVICE_STATUS status;
    if (!os::ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        DWORD const error = os::GetLastError();
        bool const alreadyStopping =
            error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL && status.dwCurrentState == SERVICE_STOP_PENDING;
        if (error != ERROR_SERVICE_NOT_ACTIVE && !alreadyStopping) {
            ShowMessage(kCouldNotStop, serviceName);
        }
    }
    BOOL const deleted = os::DeleteService(service.get());
    service.reset();
    manager.reset();
    if (!deleted) {
        ShowMessage(kCouldNotDelete, serviceName);
        return false;
    }
    return true;
}

}  // namespace hf
