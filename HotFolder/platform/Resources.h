// Resources of a module: finding one by type and id and reaching its bytes.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// MAKEINTRESOURCEW: an integer resource id (or type) in a name's place.
inline const WCHAR* MakeIntResource(unsigned id)
{
    return reinterpret_cast<const WCHAR*>(static_cast<std::uintptr_t>(static_cast<WORD>(id)));
}

// FindResourceW: the resource of that name and type in the module (null: the executable);
// null with ERROR_RESOURCE_TYPE_NOT_FOUND or ERROR_RESOURCE_NAME_NOT_FOUND when absent.
HRSRC FindResourceW(HINSTANCE module, const WCHAR* name, const WCHAR* type);

// LoadResource / LockResource / SizeofResource: the found resource's bytes and their count.
// They stay valid while the module is loaded; nothing is freed.
HGLOBAL LoadResource(HINSTANCE module, HRSRC resource);
const void* LockResource(HGLOBAL loaded);
DWORD SizeofResource(HINSTANCE module, HRSRC resource);

}  // namespace hf::os
