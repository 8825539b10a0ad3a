#include "platform/Com.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/sim/SimWorld.h"

#include <cstring>

namespace hf::os {

HRESULT CoInitialize(void* /*reserved*/)
{
    ++sim::TheWorld().com.apartments;
    return S_OK;
}

void CoUninitialize()
{
    --sim::TheWorld().com.apartments;
}

HRESULT CoCreateInstance(GUID const& clsid, IUnknown* outer, DWORD /*classContext*/, GUID const& iid, void** object)
{
    *object = nullptr;
    for (auto const& published : sim::TheWorld().com.classObjects) {
        if (SameGuid(published.clsid, clsid) && !published.suspended) {
            IClassFactory* factory = nullptr;
            HRESULT const found =
                published.object->QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&factory));
            if (found != S_OK) {
                return found;
            }
            HRESULT const created = factory->CreateInstance(outer, iid, object);
            factory->Release();
            return created;
        }
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
    auto* block = new std::uint32_t[1 + (length + 1 + 1) / 2]();
    block[0] = length * 2;
    auto* characters = reinterpret_cast<WCHAR*>(block + 1);
    if (text != nullptr) {
        std::memcpy(characters, text, length * sizeof(WCHAR));
    }
    characters[length] = 0;
    return characters;
}

void SysFreeString(BSTR text)
{
    if (text != nullptr) {
        delete[](reinterpret_cast<std::uint32_t*>(text) - 1);
    }
}

unsigned SysStringLen(BSTR text)
{
    return text == nullptr ? 0 : reinterpret_cast<std::uint32_t*>(text)[-1] / 2;
}

// --- the server side -----------------------------------------------------------

HRESULT CoInitializeEx(void* reserved, DWORD /*coInit*/)
{
    return CoInitialize(reserved);
}

HRESULT CoRegisterClassObject(GUID const& clsid, IUnknown* classObject, DWORD /*classContext*/, DWORD flags,
                              DWORD* cookie)
{
    auto& com = sim::TheWorld().com;
    classObject->AddRef();
    *cookie = com.nextCookie++;
    com.classObjects.push_back({clsid, classObject, *cookie, (flags & REGCLS_SUSPENDED) != 0});
    return S_OK;
}

HRESULT CoResumeClassObjects()
{
    for (auto& published : sim::TheWorld().com.classObjects) {
        published.suspended = false;
    }
    return S_OK;
}

HRESULT CoRevokeClassObject(DWORD cookie)
{
    auto& objects = sim::TheWorld().com.classObjects;
    for (auto it = objects.begin(); it != objects.end(); ++it) {
        if (it->cookie == cookie) {
            IUnknown* const object = it->object;
            objects.erase(it);
            object->Release();
            return S_OK;
        }
    }
    return CO_E_OBJNOTREG;
}

DWORD CoAddRefServerProcess()
{
    return static_cast<DWORD>(++sim::TheWorld().com.serverReferences);
}

DWORD CoReleaseServerProcess()
{
    auto& com = sim::TheWorld().com;
    if (--com.serverReferences == 0) {
        for (auto& published : com.classObjects) {
            published.suspended = true;
        }
    }
    return static_cast<DWORD>(com.serverReferences);
}

namespace {

// The executable's type library as LoadTypeLib gives it: only its identity
// matters to the simulated registration.
class SimTypeLib final : public ITypeLib {
public:
    HRESULT QueryInterface(GUID const& /*iid*/, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    std::uint32_t AddRef() override { return ++references_; }
    std::uint32_t Release() override
    {
        std::uint32_t const left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    unsigned GetTypeInfoCount() override { return 2; }
    HRESULT GetTypeInfo(unsigned /*index*/, ITypeInfo** /*typeInfo*/) override { return E_NOTIMPL; }
    HRESULT GetTypeInfoType(unsigned /*index*/, int* /*kind*/) override { return E_NOTIMPL; }
    HRESULT GetTypeInfoOfGuid(GUID const& /*guid*/, ITypeInfo** /*typeInfo*/) override { return E_NOTIMPL; }

private:
    ~SimTypeLib() = default;
    std::uint32_t references_ = 1;
};

HRESULT UnregisterLibrary(GUID const& libId, bool perUser)
{
    auto& libraries = sim::TheWorld().com.typeLibraries;
    for (auto it = libraries.begin(); it != libraries.end(); ++it) {
        if (it->perUser == perUser && SameGuid(libId, LIBID_HotFolderLib)) {
            libraries.erase(it);
            return S_OK;
        }
    }
    return TYPE_E_REGISTRYACCESS;
}

// One registration per form, as the registry's keys of the library are one.
HRESULT RegisterLibrary(ITypeLib* typeLib, const WCHAR* fullPath, bool perUser)
{
    if (typeLib == nullptr || fullPath == nullptr) {
        return E_INVALIDARG;
    }
    UnregisterLibrary(LIBID_HotFolderLib, perUser);
    sim::TheWorld().com.typeLibraries.push_back({fullPath, perUser});
    return S_OK;
}

}  // namespace

// Only the executable's own type library (its TYPELIB resource 1) can be loaded.
HRESULT LoadTypeLib(const WCHAR* file, ITypeLib** typeLib)
{
    *typeLib = nullptr;
    auto const& process = sim::TheWorld().processes.current;
    if (file == nullptr || process.modulePath != file || process.resources.count({u"TYPELIB", 1}) == 0) {
        return TYPE_E_CANTLOADLIBRARY;
    }
    *typeLib = new SimTypeLib;
    return S_OK;
}

HRESULT RegisterTypeLib(ITypeLib* typeLib, const WCHAR* fullPath, const WCHAR* /*helpDirectory*/)
{
    return RegisterLibrary(typeLib, fullPath, false);
}

HRESULT RegisterTypeLibForUser(ITypeLib* typeLib, const WCHAR* fullPath, const WCHAR* /*helpDirectory*/)
{
    return RegisterLibrary(typeLib, fullPath, true);
}

HRESULT UnRegisterTypeLib(GUID const& libId, WORD /*majorVersion*/, WORD /*minorVersion*/, DWORD /*locale*/,
                          int /*sysKind*/)
{
    return UnregisterLibrary(libId, false);
}

HRESULT UnRegisterTypeLibForUser(GUID const& libId, WORD /*majorVersion*/, WORD /*minorVersion*/, DWORD /*locale*/,
                                 int /*sysKind*/)
{
    return UnregisterLibrary(libId, true);
}

// No simulated story calls through IDispatch; the Wine tests do.
HRESULT DispGetIDsOfNames(ITypeInfo* /*typeInfo*/, WCHAR** /*names*/, unsigned /*count*/, LONG* /*ids*/)
{
    return E_NOTIMPL;
}

HRESULT DispInvoke(void* /*object*/, ITypeInfo* /*typeInfo*/, LONG /*id*/, WORD /*flags*/, void* /*params*/,
                   void* /*result*/, void* /*exception*/, unsigned* /*argumentError*/)
{
    return E_NOTIMPL;
}

}  // namespace hf::os
