// COM as the watcher and the tools use it as clients (apartment set-up,
// creating the service's FolderService object, the BSTRs its methods take),
// and as the service uses it as a server (class objects, server references,
// the type library and the dispatch calls served from it). The interfaces are
// declared with the same slot order as their COM vtables, so a pointer that
// CoCreateInstance returns is called through them directly, and an object the
// core implements can be handed to the system as it is.
#pragma once

#include "platform/Types.h"

#include <cstdint>

namespace hf::os {

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

using BSTR = WCHAR*;
using VARIANT_BOOL = std::int16_t;

class IUnknown {
public:
    virtual HRESULT QueryInterface(GUID const& iid, void** object) = 0;
    virtual std::uint32_t AddRef() = 0;
    virtual std::uint32_t Release() = 0;

protected:
    ~IUnknown() = default;
};

// Automation's late binding; the watcher never calls these slots.
class IDispatch : public IUnknown {
public:
    virtual HRESULT GetTypeInfoCount(unsigned* count) = 0;
    virtual HRESULT GetTypeInfo(unsigned index, DWORD locale, void** typeInfo) = 0;
    virtual HRESULT GetIDsOfNames(GUID const& iid, WCHAR** names, unsigned count, DWORD locale, LONG* ids) = 0;
    virtual HRESULT Invoke(LONG id, GUID const& iid, DWORD locale, WORD flags, void* params, void* result,
                           void* exception, unsigned* argumentError) = 0;

protected:
    ~IDispatch() = default;
};

// The service's one COM interface (dual, slots 7 to 10).
class IFolderService : public IDispatch {
public:
    virtual HRESULT IsUserInstalled(BSTR domainSlashName, VARIANT_BOOL* isInstalled) = 0;
    virtual HRESULT InstallUser(BSTR domainSlashName, BSTR password) = 0;
    virtual HRESULT UninstallUser(BSTR domainSlashName) = 0;
    virtual HRESULT ConnectWatcher(BSTR pipeName) = 0;

protected:
    ~IFolderService() = default;
};

// {B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}
inline constexpr GUID CLSID_FolderService = {
    0xB1E2C7AA, 0xDF7A, 0x4F02, {0xAD, 0x05, 0xC3, 0xF2, 0x7A, 0x97, 0xD1, 0x5B}};
// {4D84CADB-50A1-44A9-8D74-E31D15EB6A8A}
inline constexpr GUID IID_IFolderService = {
    0x4D84CADB, 0x50A1, 0x44A9, {0x8D, 0x74, 0xE3, 0x1D, 0x15, 0xEB, 0x6A, 0x8A}};

inline bool SameGuid(GUID const& a, GUID const& b)
{
    return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3 && a.Data4[0] == b.Data4[0] &&
           a.Data4[1] == b.Data4[1] && a.Data4[2] == b.Data4[2] && a.Data4[3] == b.Data4[3] &&
           a.Data4[4] == b.Data4[4] && a.Data4[5] == b.Data4[5] && a.Data4[6] == b.Data4[6] && a.Data4[7] == b.Data4[7];
}

// CoInitialize: joins the calling thread to a single-threaded apartment.
HRESULT CoInitialize(void* reserved);

// CoUninitialize: leaves the apartment (called also when CoInitialize failed).
void CoUninitialize();

// CoCreateInstance: creates an object of a registered class and returns the asked interface.
HRESULT CoCreateInstance(GUID const& clsid, IUnknown* outer, DWORD classContext, GUID const& iid, void** object);

// SysAllocStringLen: a BSTR of `length` characters copied from `text`; null when out of memory.
BSTR SysAllocStringLen(const WCHAR* text, unsigned length);

// SysFreeString: frees a BSTR (null is allowed).
void SysFreeString(BSTR text);

// --- the server side -----------------------------------------------------------

// The class object that makes a class's instances.
class IClassFactory : public IUnknown {
public:
    virtual HRESULT CreateInstance(IUnknown* outer, GUID const& iid, void** object) = 0;
    virtual HRESULT LockServer(BOOL lock) = 0;

protected:
    ~IClassFactory() = default;
};

// A type description, declared up to the last slot the system calls. The core
// hands it to DispGetIDsOfNames and DispInvoke, and follows a dual
// interface's dispatch view to its vtable view (GetRefTypeOfImplType with
// index -1, then GetRefTypeInfo). The slots it never calls take opaque pointers.
class ITypeInfo : public IUnknown {
public:
    virtual HRESULT GetTypeAttr(void** attributes) = 0;
    virtual HRESULT GetTypeComp(void** comp) = 0;
    virtual HRESULT GetFuncDesc(unsigned index, void** description) = 0;
    virtual HRESULT GetVarDesc(unsigned index, void** description) = 0;
    virtual HRESULT GetNames(LONG id, void* names, unsigned maxNames, unsigned* count) = 0;
    virtual HRESULT GetRefTypeOfImplType(unsigned index, DWORD* refType) = 0;
    virtual HRESULT GetImplTypeFlags(unsigned index, int* flags) = 0;
    virtual HRESULT GetIDsOfNames(WCHAR** names, unsigned count, LONG* ids) = 0;
    virtual HRESULT Invoke(void* object, LONG id, WORD flags, void* params, void* result, void* exception,
                           unsigned* argumentError) = 0;
    virtual HRESULT GetDocumentation(LONG id, void* name, void* docString, DWORD* helpContext, void* helpFile) = 0;
    virtual HRESULT GetDllEntry(LONG id, int invokeKind, void* dllName, void* name, WORD* ordinal) = 0;
    virtual HRESULT GetRefTypeInfo(DWORD refType, ITypeInfo** typeInfo) = 0;

protected:
    ~ITypeInfo() = default;
};

// A loaded type library, declared up to the last slot the system calls.
class ITypeLib : public IUnknown {
public:
    virtual unsigned GetTypeInfoCount() = 0;
    virtual HRESULT GetTypeInfo(unsigned index, ITypeInfo** typeInfo) = 0;
    virtual HRESULT GetTypeInfoType(unsigned index, int* kind) = 0;
    virtual HRESULT GetTypeInfoOfGuid(GUID const& guid, ITypeInfo** typeInfo) = 0;

protected:
    ~ITypeLib() = default;
};

// {00000000-0000-0000-C000-000000000046}
inline constexpr GUID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// {00020400-0000-0000-C000-000000000046}
inline constexpr GUID IID_IDispatch = {0x00020400, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// {00000001-0000-0000-C000-000000000046}
inline constexpr GUID IID_IClassFactory = {
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// The system's global interface table: {00000323-0000-0000-C000-000000000046}
// and its interface {00000146-0000-0000-C000-000000000046}.
inline constexpr GUID CLSID_StdGlobalInterfaceTable = {
    0x00000323, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr GUID IID_IGlobalInterfaceTable = {
    0x00000146, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// {524F5CA9-889F-479E-9DCC-E15F61C695AC}
inline constexpr GUID LIBID_HotFolderLib = {
    0x524F5CA9, 0x889F, 0x479E, {0x9D, 0xCC, 0xE1, 0x5F, 0x61, 0xC6, 0x95, 0xAC}};

// CoInitializeEx: joins the calling thread to an apartment (flags 0: the multithreaded one);
// RPC_E_CHANGED_MODE when the thread is already in an apartment of another kind.
HRESULT CoInitializeEx(void* reserved, DWORD coInit);

// CoRegisterClassObject: publishes a class object; with REGCLS_SUSPENDED it is not
// handed to clients until CoResumeClassObjects. The cookie revokes it.
HRESULT CoRegisterClassObject(GUID const& clsid, IUnknown* classObject, DWORD classContext, DWORD flags, DWORD* cookie);

// CoResumeClassObjects: lets clients reach every class object registered suspended.
HRESULT CoResumeClassObjects();

// CoRevokeClassObject: withdraws a class object registered with CoRegisterClassObject.
HRESULT CoRevokeClassObject(DWORD cookie);

// CoAddRefServerProcess / CoReleaseServerProcess: the process's count of server
// references; the new count. At 0 the class objects are suspended.
DWORD CoAddRefServerProcess();
DWORD CoReleaseServerProcess();

// LoadTypeLib: loads a type library from a file, or from the type library resource 1 of an
// executable named by its full path.
HRESULT LoadTypeLib(const WCHAR* file, ITypeLib** typeLib);

// RegisterTypeLib: writes the library's keys (and its interfaces') under HKEY_CLASSES_ROOT.
HRESULT RegisterTypeLib(ITypeLib* typeLib, const WCHAR* fullPath, const WCHAR* helpDirectory);

// RegisterTypeLibForUser: the same under HKEY_CURRENT_USER\Software\Classes; where the
// system does not offer it, RegisterTypeLib.
HRESULT RegisterTypeLibForUser(ITypeLib* typeLib, const WCHAR* fullPath, const WCHAR* helpDirectory);

// UnRegisterTypeLib / UnRegisterTypeLibForUser: remove a library's registration by its
// LIBID, version, locale and system kind (the per-user form falls back as above).
HRESULT UnRegisterTypeLib(GUID const& libId, WORD majorVersion, WORD minorVersion, DWORD locale, int sysKind);
HRESULT UnRegisterTypeLibForUser(GUID const& libId, WORD majorVersion, WORD minorVersion, DWORD locale, int sysKind);

// DispGetIDsOfNames / DispInvoke: IDispatch served from a type description: the names'
// DISPIDs, and a late-bound call made on `object` through its vtable.
HRESULT DispGetIDsOfNames(ITypeInfo* typeInfo, WCHAR** names, unsigned count, LONG* ids);
HRESULT DispInvoke(void* object, ITypeInfo* typeInfo, LONG id, WORD flags, void* params, void* result, void* exception,
                   unsigned* argumentError);

// SysStringLen: a BSTR's length in characters, embedded nulls included (0 for null).
unsigned SysStringLen(BSTR text);

}  // namespace hf::os
