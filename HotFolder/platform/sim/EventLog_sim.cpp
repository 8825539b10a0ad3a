#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/EventLog.h"
#include "platform/sim/SimMemory.h"
#include "platform/sim/SimWorld.h"

#include <cstring>

namespace hf::os {

namespace {

class EventSource : public sim::Object {
public:
    explicit EventSource(std::u16string name) : name(std::move(name)) {}
    void OnClose() override { --sim::TheWorld().eventLog.openSources; }
    std::u16string name;
};

// The pseudo-handle GetCurrentProcess returns, as on Windows.
HANDLE const kCurrentProcess = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

}  // namespace

HANDLE RegisterEventSourceW(const WCHAR* /*serverName*/, const WCHAR* sourceName)
{
    auto& world = sim::TheWorld();
    ++world.eventLog.openSources;
    return world.AddHandle(std::make_shared<EventSource>(sourceName ? sourceName : u""));
}

BOOL ReportEventW(HANDLE eventSource, WORD type, WORD category, DWORD eventId, PSID userSid, WORD numStrings,
                  DWORD /*dataSize*/, const WCHAR** strings, void* /*rawData*/)
{
    auto source = sim::TheWorld().LookupAs<EventSource>(eventSource);
    if (!source) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    sim::TheWorld().eventLog.Add({source->name, type, category, eventId,
                                  userSid ? static_cast<const WCHAR*>(userSid) : u"",
                                  std::vector<std::u16string>(strings, strings + numStrings)});
    return 1;
}

BOOL DeregisterEventSource(HANDLE eventSource)
{
    if (!sim::TheWorld().LookupAs<EventSource>(eventSource)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    sim::TheWorld().CloseHandle(eventSource);
    return 1;
}

HANDLE GetCurrentProcess()
{
    return kCurrentProcess;
}

// The simulated security descriptor is one LocalFree-able block holding the
// owner SID as NUL-terminated text; the owner pointer points into it. Only the
// owner is asked for here.
DWORD GetSecurityInfo(HANDLE object, DWORD /*objectType*/, DWORD /*securityInfo*/, PSID* owner, PSID* /*group*/,
                      void** /*dacl*/, void** /*sacl*/, PSECURITY_DESCRIPTOR* securityDescriptor)
{
    if (object != kCurrentProcess) {
        return ERROR_INVALID_HANDLE;
    }
    std::u16string const& sid = sim::TheWorld().processes.current.ownerSid;
    auto* block = static_cast<WCHAR*>(sim::LocalAllocate((sid.size() + 1) * sizeof(WCHAR)));
    std::memcpy(block, sid.c_str(), (sid.size() + 1) * sizeof(WCHAR));
    *owner = block;
    *securityDescriptor = block;
    return 0;
}

HLOCAL LocalFree(HLOCAL memory)
{
    if (memory == nullptr) {
        return nullptr;
    }
    if (!sim::LocalRelease(memory)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return memory;
    }
    return nullptr;
}

HLOCAL LocalAlloc(unsigned /*flags*/, std::size_t bytes)
{
    return sim::LocalAllocate(bytes);
}

int LoadStringW(HINSTANCE /*module*/, unsigned id, WCHAR* buffer, int bufferMax)
{
    auto const& strings = sim::TheWorld().processes.current.stringResources;
    auto it = strings.find(id);
    if (it == strings.end()) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    std::size_t const count = std::min<std::size_t>(it->second.size(), static_cast<std::size_t>(bufferMax - 1));
    std::memcpy(buffer, it->second.data(), count * sizeof(WCHAR));
    buffer[count] = 0;
    return static_cast<int>(count);
}

}  // namespace hf::os
