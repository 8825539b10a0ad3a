// COM as the watcher uses it as a client: apartment set-up, creating the
// service's FolderService object, and the BSTRs its methods take. The
// interfaces are declared with the same slot order as their COM vtables, so a
// pointer that CoCreateInstance returns is called through them directly.
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

}  // namespace hf::os
