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
    DWORD error = 0;
    if (sim::Injected("RegisterEventSourceW", error)) {
        return nullptr;
    }
    auto& world = sim::TheWorld();
    ++world.eventLog.openSources;
    return world.AddHandle(std::make_shared<EventSource>(sourceName ? sourceName : u""));
}

BOOL ReportEventW(HANDLE eventSource, WORD type, WORD category, DWORD eventId, PSID userSid, WORD numStrings,
                  DWORD /*dataSize*/, const WCHAR** strings, void* /*rawData*/)
{
    DWORD error = 0;
    if (sim::Injected("ReportEventW", error)) {
        return 0;
    }
    auto source = sim::TheWorld().LookupAs<EventSource>(eventSource);
    if (!source) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    sim::EventRecord record;
    record.source = source->name;
    record.type = type;
    record.category = category;
    record.eventId = eventId;
    if (userSid != nullptr) {
        record.userSid = static_cast<const WCHAR*>(userSid);
    }
    for (WORD i = 0; i < numStrings; ++i) {
        record.strings.emplace_back(strings[i]);
    }
    sim::TheWorld().eventLog.Add(std::move(record));
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
// owner SID as NUL-terminated text; the owner pointer points into it.
DWORD GetSecurityInfo(HANDLE object, DWORD /*objectType*/, DWORD /*securityInfo*/, PSID* owner, PSID* group,
                      void** dacl, void** sacl, PSECURITY_DESCRIPTOR* securityDescriptor)
{
    DWORD error = 0;
    if (sim::Injected("GetSecurityInfo", error)) {
        return error;
    }
    if (object != kCurrentProcess) {
        return ERROR_INVALID_HANDLE;
    }
    std::u16string const& sid = sim::TheWorld().processes.current.ownerSid;
    auto* block = static_cast<WCHAR*>(sim::LocalAllocate((sid.size() + 1) * sizeof(WCHAR)));
    std::memcpy(block, sid.c_str(), (sid.size() + 1) * sizeof(WCHAR));
    if (owner) {
        *owner = block;
    }
    if (group) {
        *group = nullptr;
    }
    if (dacl) {
        *dacl = nullptr;
    }
    if (sacl) {
        *sacl = nullptr;
    }
    if (securityDescriptor) {
        *securityDescriptor = block;
    }
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
    DWORD error = 0;
    if (sim::Injected("LocalAlloc", error)) {
        return nullptr;
    }
    return sim::LocalAllocate(bytes);
}

int LoadStringW(HINSTANCE /*module*/, unsigned id, WCHAR* buffer, int bufferMax)
{
    auto const& strings = sim::TheWorld().processes.current.stringResources;
    auto it = strings.find(id);
    if (it == strings.end() || bufferMax <= 0) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    std::size_t const count = std::min<std::size_t>(it->second.size(), static_cast<std::size_t>(bufferMax - 1));
    std::memcpy(buffer, it->second.data(), count * sizeof(WCHAR));
    buffer[count] = 0;
    return static_cast<int>(count);
}

}  // namespace hf::os
