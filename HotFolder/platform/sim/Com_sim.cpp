#include "platform/Com.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/sim/SimWorld.h"

#include <cstring>

namespace hf::os {

HRESULT CoInitialize(void* /*reserved*/)
{
    DWORD error = 0;
    if (sim::Injected("CoInitialize", error)) {
        return static_cast<HRESULT>(error);
    }
    ++sim::TheWorld().com.apartments;
    return S_OK;
}

void CoUninitialize()
{
    --sim::TheWorld().com.apartments;
}

HRESULT CoCreateInstance(GUID const& clsid, IUnknown* /*outer*/, DWORD /*classContext*/, GUID const& iid, void** object)
{
    *object = nullptr;
    DWORD error = 0;
    if (sim::Injected("CoCreateInstance", error)) {
        return static_cast<HRESULT>(error);
    }
    auto const& factory = sim::TheWorld().com.FolderService();
    if (!SameGuid(clsid, CLSID_FolderService) || !factory) {
        return REGDB_E_CLASSNOTREG;
    }
    return factory(iid, object);
}

// A BSTR is its length in bytes, then the characters and a terminator; the
// pointer handed out points at the characters.
BSTR SysAllocStringLen(const WCHAR* text, unsigned length)
{
    DWORD error = 0;
    if (sim::Injected("SysAllocStringLen", error)) {
        return nullptr;
    }
    auto* block = new std::uint32_t[1 + (length + 1 + 1) / 2]();
    block[0] = length * 2;
    auto* characters = reinterpret_cast<WCHAR*>(block + 1);
    if (text != nullptr) {
        std::memcpy(characters, text, length * sizeof(WCHAR));
    }
    characters[length] = 0;
    ++sim::TheWorld().com.bstrsOutstanding;
    return characters;
}

void SysFreeString(BSTR text)
{
    if (text == nullptr) {
        return;
    }
    --sim::TheWorld().com.bstrsOutstanding;
    delete[](reinterpret_cast<std::uint32_t*>(text) - 1);
}

}  // namespace hf::os
