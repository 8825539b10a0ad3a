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

unsigned SysStringLen(BSTR text)
{
    return ::SysStringLen(reinterpret_cast<::BSTR>(text));
}

// --- the server side -----------------------------------------------------------
// The core's interfaces have the system's vtable layout (declared in slot
// order, one calling convention on x86-64), so their pointers pass as the
// system's.

namespace {

::GUID const& Guid(GUID const& guid)
{
    return reinterpret_cast<::GUID const&>(guid);
}

LPCOLESTR Text(const WCHAR* text)
{
    return reinterpret_cast<LPCOLESTR>(text);
}

// The registration calls take their paths as writable strings; they only read them.
OLECHAR* Writable(const WCHAR* text)
{
    return const_cast<OLECHAR*>(Text(text));
}

// The per-user registration calls, where oleaut32 has them (Vista and later).
template <typename Function>
Function PerUserCall(char const* name)
{
    HMODULE const oleaut = ::GetModuleHandleW(L"oleaut32.dll");
    return oleaut ? reinterpret_cast<Function>(reinterpret_cast<void (*)()>(::GetProcAddress(oleaut, name))) : nullptr;
}

}  // namespace

HRESULT CoInitializeEx(void* reserved, DWORD coInit)
{
    return ::CoInitializeEx(reserved, coInit);
}

HRESULT CoRegisterClassObject(GUID const& clsid, IUnknown* classObject, DWORD classContext, DWORD flags, DWORD* cookie)
{
    ::DWORD registered = 0;
    HRESULT const result = ::CoRegisterClassObject(Guid(clsid), reinterpret_cast<::IUnknown*>(classObject),
                                                   classContext, flags, &registered);
    *cookie = registered;
    return result;
}

HRESULT CoResumeClassObjects()
{
    return ::CoResumeClassObjects();
}

HRESULT CoRevokeClassObject(DWORD cookie)
{
    return ::CoRevokeClassObject(cookie);
}

DWORD CoAddRefServerProcess()
{
    return ::CoAddRefServerProcess();
}

DWORD CoReleaseServerProcess()
{
    return ::CoReleaseServerProcess();
}

HRESULT LoadTypeLib(const WCHAR* file, ITypeLib** typeLib)
{
    return ::LoadTypeLib(Text(file), reinterpret_cast<::ITypeLib**>(typeLib));
}

HRESULT RegisterTypeLib(ITypeLib* typeLib, const WCHAR* fullPath, const WCHAR* helpDirectory)
{
    return ::RegisterTypeLib(reinterpret_cast<::ITypeLib*>(typeLib), Writable(fullPath), Writable(helpDirectory));
}

HRESULT RegisterTypeLibForUser(ITypeLib* typeLib, const WCHAR* fullPath, const WCHAR* helpDirectory)
{
    using Register = HRESULT(WINAPI*)(::ITypeLib*, OLECHAR*, OLECHAR*);
    auto const forUser = PerUserCall<Register>("RegisterTypeLibForUser");
    if (forUser == nullptr) {
        return RegisterTypeLib(typeLib, fullPath, helpDirectory);
    }
    return forUser(reinterpret_cast<::ITypeLib*>(typeLib), Writable(fullPath), Writable(helpDirectory));
}

HRESULT UnRegisterTypeLib(GUID const& libId, WORD majorVersion, WORD minorVersion, DWORD locale, int sysKind)
{
    return ::UnRegisterTypeLib(Guid(libId), majorVersion, minorVersion, locale, static_cast<SYSKIND>(sysKind));
}

HRESULT UnRegisterTypeLibForUser(GUID const& libId, WORD majorVersion, WORD minorVersion, DWORD locale, int sysKind)
{
    using Unregister = HRESULT(WINAPI*)(::GUID const&, WORD, WORD, LCID, SYSKIND);
    auto const forUser = PerUserCall<Unregister>("UnRegisterTypeLibForUser");
    if (forUser == nullptr) {
        return UnRegisterTypeLib(libId, majorVersion, minorVersion, locale, sysKind);
    }
    return forUser(Guid(libId), majorVersion, minorVersion, locale, static_cast<SYSKIND>(sysKind));
}

HRESULT DispGetIDsOfNames(ITypeInfo* typeInfo, WCHAR** names, unsigned count, LONG* ids)
{
    return ::DispGetIDsOfNames(reinterpret_cast<::ITypeInfo*>(typeInfo), reinterpret_cast<LPOLESTR*>(names), count,
                               reinterpret_cast<DISPID*>(ids));
}

HRESULT DispInvoke(void* object, ITypeInfo* typeInfo, LONG id, WORD flags, void* params, void* result, void* exception,
                   unsigned* argumentError)
{
    return ::DispInvoke(object, reinterpret_cast<::ITypeInfo*>(typeInfo), id, flags, static_cast<DISPPARAMS*>(params),
                        static_cast<VARIANT*>(result), static_cast<EXCEPINFO*>(exception), argumentError);
}

}  // namespace hf::os
