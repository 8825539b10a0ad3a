// The simulated service control manager: installed services, their state and
// the start requests they received.
#pragma once

#include "platform/Types.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace hf::sim {

struct Service {
    std::u16string name;
    std::u16string displayName;
    std::u16string binaryPath;
    DWORD serviceType = 0x10;
    DWORD startType = 3;
    DWORD errorControl = 1;
    std::u16string dependencies;
    DWORD state = 1;  // SERVICE_STOPPED
    int startRequests = 0;
    // States the service process reported with SetServiceStatus, in order.
    std::vector<DWORD> reportedStates;
    // The control handler the running service registered.
    void (*handler)(DWORD control) = nullptr;
    // Called with each state the service process reports, as it reports it.
    std::function<void(DWORD state)> onStatus;
};

class ServiceManager {
public:
    Service& Install(std::u16string const& name);
    Service* Find(std::u16string const& name);
    void Remove(std::u16string const& name);
    void Clear()
    {
        services_.clear();
        dispatcherReachable = false;
    }

    // Whether the current process was started by the manager, so that
    // StartServiceCtrlDispatcherW connects (it then runs the service main
    // function on the calling thread and returns when it ends).
    bool dispatcherReachable = false;

private:
    std::map<std::u16string, Service> services_;  // keyed by upper-cased name
};

}  // namespace hf::sim
