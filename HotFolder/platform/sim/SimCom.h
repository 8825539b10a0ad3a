// The simulated COM runtime: which classes are registered, and the objects
// that CoCreateInstance hands out for them.
#pragma once

#include "platform/Com.h"
#include "platform/Types.h"

#include <functional>

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
    int bstrsOutstanding = 0;

    void Clear()
    {
        folderService_ = nullptr;
        apartments = 0;
        bstrsOutstanding = 0;
    }

private:
    Factory folderService_;
};

}  // namespace hf::sim
