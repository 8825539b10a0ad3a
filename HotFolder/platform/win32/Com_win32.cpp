#include <objbase.h>
#include <oleauto.h>
#include <windows.h>

#include "platform/Com.h"

namespace hf::os {

static_assert(sizeof(GUID) == sizeof(::GUID), "GUID layout must match the system's");

HRESULT CoInitialize(void* reserved)
{
    return ::CoInitialize(reserved);
}

void CoUninitialize()
{
    ::CoUninitialize();
}

HRESULT CoCreateInstance(GUID const& clsid, IUnknown* outer, DWORD classContext, GUID const& iid, void** object)
{
    return ::CoCreateInstance(reinterpret_cast<::GUID const&>(clsid), reinterpret_cast<::IUnknown*>(outer),
                              classContext, reinterpret_cast<::GUID const&>(iid), object);
}

BSTR SysAllocStringLen(const WCHAR* text, unsigned length)
{
    return reinterpret_cast<BSTR>(::SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text), length));
}

void SysFreeString(BSTR text)
{
    ::SysFreeString(reinterpret_cast<::BSTR>(text));
}

}  // namespace hf::os
