#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Resources.h"
#include "platform/sim/SimWorld.h"

#include <cstdint>

namespace hf::os {

namespace {

// A found resource is its entry in the process's resource table.
using Entry = std::pair<const std::pair<std::u16string, unsigned>, std::vector<BYTE>>;

}  // namespace

// Resources are looked up by integer id and named type, the one form the
// system uses here.
HRSRC FindResourceW(HINSTANCE /*module*/, const WCHAR* name, const WCHAR* type)
{
    auto& resources = sim::TheWorld().processes.current.resources;
    auto const id = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(name));
    auto const found = resources.find({std::u16string(type), id});
    if (found == resources.end()) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    return &*found;
}

HGLOBAL LoadResource(HINSTANCE /*module*/, HRSRC resource)
{
    return resource;
}

const void* LockResource(HGLOBAL loaded)
{
    return loaded ? static_cast<Entry*>(loaded)->second.data() : nullptr;
}

DWORD SizeofResource(HINSTANCE /*module*/, HRSRC resource)
{
    return resource ? static_cast<DWORD>(static_cast<Entry*>(resource)->second.size()) : 0;
}

}  // namespace hf::os
