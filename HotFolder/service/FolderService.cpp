#include "service/FolderService.h"

#include "platform/Constants.h"
#include "platform/Sync.h"
#include "service/HotFolderModule.h"
#include "service/ServiceInstaller.h"
#include "supervisor/CommandQueue.h"
#include "supervisor/UserStore.h"

namespace hf {

namespace {

constexpr HRESULT DISP_E_BADINDEX = static_cast<HRESULT>(0x8002000Bu);

// A BSTR's text up to its first null character; a null BSTR is empty.
std::u16string Text(os::BSTR text)
{
    return text == nullptr ? std::u16string() : std::u16string(text);
}

// The type description that IDispatch is served from: IFolderService's
// vtable view, loaded once from the executable's own type library.
class TypeDescription {
public:
    HRESULT Get(os::ITypeInfo** typeInfo)
    {
        lock_.Enter();
        HRESULT const result = typeInfo_ != nullptr ? S_OK : Load();
        if (typeInfo_ != nullptr) {
            typeInfo_->AddRef();
        }
        *typeInfo = typeInfo_;
        lock_.Leave();
        return result;
    }

    void Release()
    {
        lock_.Enter();
        if (typeInfo_ != nullptr) {
            typeInfo_->Release();
            typeInfo_ = nullptr;
        }
        lock_.Leave();
    }

private:
    HRESULT Load()
    {
        os::ITypeLib* library = nullptr;
        HRESULT result = os::LoadTypeLib(ExecutablePath().c_str(), &library);
        if (result != S_OK) {
            return result;
        }
        os::ITypeInfo* dispatchView = nullptr;
        result = library->GetTypeInfoOfGuid(os::IID_IFolderService, &dispatchView);
        library->Release();
        if (result != S_OK) {
            return result;
        }
        // A dual interface's description is its dispatch view; calls are made
        // through the vtable view it refers to.
        DWORD vtableView = 0;
        if (dispatchView->GetRefTypeOfImplType(static_cast<unsigned>(-1), &vtableView) == S_OK &&
            dispatchView->GetRefTypeInfo(vtableView, &typeInfo_) == S_OK) {
            dispatchView->Release();
        } else {
            typeInfo_ = dispatchView;
        }
        return S_OK;
    }

    os::CriticalSection lock_;
    os::ITypeInfo* typeInfo_ = nullptr;
};

// Kept to the end of the process: the module releases the description while
// static objects are being destroyed.
// Opens the installed-user store for one call and gives the call's Win32
// result as an HRESULT; an open that fails ends the call with its error.
template <typename Call>
HRESULT WithStore(Call const& call)
{
    UserStore const store = UserStore::Open();
    LONG const result = store.status() != 0 ? store.status() : call(store);
    return HResultFromWin32(static_cast<DWORD>(result));
}

TypeDescription& FolderServiceType()
{
    static auto* description = new TypeDescription;
    return *description;
}

class FolderService final : public os::IFolderService {
public:
    // Holds a server reference for its whole life. `outer` is the controlling
    // object when aggregated, else null.
    explicit FolderService(os::IUnknown* outer) : inner_(*this), outer_(outer ? outer : &inner_)
    {
        TheModule().AddServerReference();
    }

    os::IUnknown& Inner() { return inner_; }

    HRESULT QueryInterface(os::GUID const& iid, void** object) override { return outer_->QueryInterface(iid, object); }
    std::uint32_t AddRef() override { return outer_->AddRef(); }
    std::uint32_t Release() override { return outer_->Release(); }

    HRESULT GetTypeInfoCount(unsigned* count) override
    {
        *count = 1;
        return S_OK;
    }

    HRESULT GetTypeInfo(unsigned index, DWORD /*locale*/, void** typeInfo) override
    {
        *typeInfo = nullptr;
        if (index != 0) {
            return DISP_E_BADINDEX;
        }
        return FolderServiceType().Get(reinterpret_cast<os::ITypeInfo**>(typeInfo));
    }

    HRESULT GetIDsOfNames(os::GUID const& /*iid*/, WCHAR** names, unsigned count, DWORD /*locale*/, LONG* ids) override
    {
        os::ITypeInfo* typeInfo = nullptr;
        HRESULT result = FolderServiceType().Get(&typeInfo);
        if (result == S_OK) {
            result = os::DispGetIDsOfNames(typeInfo, names, count, ids);
            typeInfo->Release();
        }
        return result;
    }

    HRESULT Invoke(LONG id, os::GUID const& /*iid*/, DWORD /*locale*/, WORD flags, void* params, void* result,
                   void* exception, unsigned* argumentError) override
    {
        os::ITypeInfo* typeInfo = nullptr;
        HRESULT invoked = FolderServiceType().Get(&typeInfo);
        if (invoked == S_OK) {
            invoked = os::DispInvoke(static_cast<os::IFolderService*>(this), typeInfo, id, flags, params, result,
                                     exception, argumentError);
            typeInfo->Release();
        }
        return invoked;
    }

    HRESULT IsUserInstalled(os::BSTR domainSlashName, os::VARIANT_BOOL* isInstalled) override;
    HRESULT InstallUser(os::BSTR domainSlashName, os::BSTR password) override;
    HRESULT UninstallUser(os::BSTR domainSlashName) override;

    // The watcher's announcement: the supervisor connects to the pipe on its
    // own thread, so there is nothing to wait for.
    HRESULT ConnectWatcher(os::BSTR pipeName) override
    {
        TheCommandQueue().Post(Command{CMD_CONNECT, Text(pipeName)});
        return S_OK;
    }

private:
    // The object's own IUnknown, which counts its references; when aggregated
    // it is the one the controlling object holds.
    class InnerUnknown final : public os::IUnknown {
    public:
        explicit InnerUnknown(FolderService& owner) : owner_(owner) {}

        // The reference is taken through the pointer handed out: an aggregated
        // object's IFolderService counts on the controlling object, which is
        // also where its Release will go.
        HRESULT QueryInterface(os::GUID const& iid, void** object) override
        {
            os::IUnknown* found = nullptr;
            if (os::SameGuid(iid, os::IID_IUnknown)) {
                found = this;
            } else if (os::SameGuid(iid, os::IID_IDispatch) || os::SameGuid(iid, os::IID_IFolderService)) {
                found = static_cast<os::IFolderService*>(&owner_);
            } else {
                *object = nullptr;
                return E_NOINTERFACE;
            }
            found->AddRef();
            *object = found;
            return S_OK;
        }
        std::uint32_t AddRef() override { return ++owner_.references_; }
        std::uint32_t Release() override
        {
            std::uint32_t const left = --owner_.references_;
            if (left == 0) {
                delete &owner_;
            }
            return left;
        }

    private:
        FolderService& owner_;
    };

    ~FolderService() { TheModule().ReleaseServerReference(); }

    InnerUnknown inner_;
    os::IUnknown* outer_;
    std::uint32_t references_ = 0;
};

HRESULT FolderService::IsUserInstalled(os::BSTR domainSlashName, os::VARIANT_BOOL* isInstalled)
{
    return WithStore([&](UserStore const& store) {
        bool installed = false;
        LONG const result = store.IsInstalled(Text(domainSlashName), installed);
        if (result == 0) {
            *isInstalled = installed ? VARIANT_TRUE : VARIANT_FALSE;
        }
        return result;
    });
}

// The password is protected whole, as counted, and never kept in clear. The
// supervisor reads the store when it starts; nobody is told now.
HRESULT FolderService::InstallUser(os::BSTR domainSlashName, os::BSTR password)
{
    return WithStore([&](UserStore const& store) {
        return store.Install(Text(domainSlashName), std::u16string_view(password, os::SysStringLen(password)));
    });
}

// A running watcher of the user is not stopped.
HRESULT FolderService::UninstallUser(os::BSTR domainSlashName)
{
    return WithStore([&](UserStore const& store) { return store.Uninstall(Text(domainSlashName)); });
}

// The class object lives as long as the process; its references are counted
// only for form. Locking it holds the server as an object would.
class FolderServiceFactory final : public os::IClassFactory {
public:
    HRESULT QueryInterface(os::GUID const& iid, void** object) override
    {
        if (!os::SameGuid(iid, os::IID_IUnknown) && !os::SameGuid(iid, os::IID_IClassFactory)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<os::IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    std::uint32_t AddRef() override { return 2; }
    std::uint32_t Release() override { return 1; }

    // An aggregating caller must ask for the object's own IUnknown.
    HRESULT CreateInstance(os::IUnknown* outer, os::GUID const& iid, void** object) override
    {
        *object = nullptr;
        if (outer != nullptr && !os::SameGuid(iid, os::IID_IUnknown)) {
            return CLASS_E_NOAGGREGATION;
        }
        auto* created = new FolderService(outer);
        os::IUnknown& inner = created->Inner();
        inner.AddRef();
        HRESULT const result = inner.QueryInterface(iid, object);
        inner.Release();
        return result;
    }

    HRESULT LockServer(BOOL lock) override
    {
        if (lock) {
            TheModule().AddServerReference();
        } else {
            TheModule().ReleaseServerReference();
        }
        return S_OK;
    }
};

}  // namespace

os::IClassFactory* FolderServiceClassObject()
{
    static FolderServiceFactory factory;
    return &factory;
}

void EndFolderServiceClass()
{
    FolderServiceType().Release();
}

}  // namespace hf
