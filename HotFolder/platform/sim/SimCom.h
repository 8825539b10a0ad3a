// The simulated COM runtime: which classes are registered, and the objects
// that CoCreateInstance hands out for them; on the server side, the class
// objects a process publishes, its server references and the type libraries
// registered.
#pragma once

#include "platform/Com.h"
#include "platform/Types.h"

#include <functional>
#include <string>
#include <vector>

namespace hf::sim {

class Com {
public:
    // What creating an object of the class gives: an HRESULT and, on success,
    // the interface pointer (the factory adds the caller's reference).
    using Factory = std::function<HRESULT(os::GUID const& iid, void** object)>;

    // Registers the FolderService class; without it, creating one fails with
    // REGDB_E_CLASSNOTREG as on a machine where the service is not registered.
    void RegisterFolderService(Factory factory) { folderService_ = std::move(factory); }
    Factory const& FolderService() const { return folderService_; }

    int apartments = 0;  // CoInitialize calls not yet matched by CoUninitialize

    // A class object published with CoRegisterClassObject (the runtime holds a reference).
    struct ClassObject {
        os::GUID clsid;
        os::IUnknown* object = nullptr;
        DWORD cookie = 0;
        bool suspended = false;
    };
    std::vector<ClassObject> classObjects;
    DWORD nextCookie = 1;
    // The process's server references (CoAddRefServerProcess).
    long serverReferences = 0;

    // The registration of the executable's type library (RegisterTypeLib or its
    // per-user form): the file registered.
    struct TypeLibrary {
        std::u16string file;
        bool perUser = false;
    };
    std::vector<TypeLibrary> typeLibraries;

    void Clear() { *this = Com(); }

private:
    Factory folderService_;
};

}  // namespace hf::sim
