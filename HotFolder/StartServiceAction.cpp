#include "StartServiceAction.h"

#include "ServiceIdentity.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/ServiceManager.h"
#include "platform/UniqueHandle.h"

namespace hf {

int StartInstalledService(EventReporter& events)
{
    UniqueServiceHandle manager(os::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_SC_MANAGER_FAILED, {LastErrorText()});
        return 0;
    }
    UniqueServiceHandle service(os::OpenServiceW(manager.get(), kServiceName, SC_MANAGER_ALL_ACCESS));
    if (!service) {
        std::u16string const error = LastErrorText();
        manager.reset();
        events.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_SERVICE_FAILED, {kServiceName, error});
        return 0;
    }
    BOOL const started = os::StartServiceW(service.get(), 0, nullptr);
    if (!started && os::GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_START_SERVICE_FAILED, {kServiceName, LastErrorText()});
    }
    service.reset();
    manager.reset();
    // Deliberately inverted: 1 means the start request was accepted.
    return started ? 1 : 0;
}

}  // namespace hf
