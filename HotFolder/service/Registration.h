// The registration steps of the one-shot switches: the AppID (and, for the
// service, the service itself, its access permission and its event source),
// and the server (the class table and the type library). Each returns S_OK or
// the HRESULT of its first failing step; earlier steps are not undone.
#pragma once

#include "platform/Types.h"
#include "platform/UniqueHandle.h"

namespace hf {

class CHotFolderModule;

// Opens HKEY_CLASSES_ROOT\AppID and then the product's AppID below it, each
// with `access`; the registry's result.
LONG OpenAppIdKey(DWORD access, UniqueRegistryKey& appId);

class ServerRegistration {
public:
    // In per-user mode the two tables and the type library go under
    // HKEY_CURRENT_USER\Software\Classes; the AppID's own values always go
    // under HKEY_CLASSES_ROOT.
    ServerRegistration(CHotFolderModule& module, bool perUser) : module_(module), perUser_(perUser) {}

    // Removes an installed service (registering as a plain local server and
    // as a service exclude each other), writes the AppID table and, as a
    // service, installs the service for automatic start with its access
    // permission and event source.
    HRESULT RegisterAppId(bool asService);
    HRESULT UnregisterAppId();

    HRESULT RegisterServer();
    HRESULT UnregisterServer();

private:
    HRESULT ApplyTable(unsigned id, bool registering);
    void ConfigureServiceStart();
    HRESULT WriteServiceValues();

    CHotFolderModule& module_;
    bool perUser_;
};

}  // namespace hf
