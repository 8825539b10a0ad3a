// Installing and removing the service "Tarnwick Hot Folders" with the service
// control manager. Registration runs interactively, so the manager's refusals
// are shown in message boxes captioned with the service name.
#pragma once

#include <string>

namespace hf {

// The service depends on the RPC subsystem: a list of one name, ended by an
// empty one.
inline constexpr char16_t kServiceDependencies[] = u"RPCSS\0";

// The executable's full path (a buffer of 260 characters); empty when it
// cannot be read or fills the buffer.
std::u16string ExecutablePath();

// True when the manager knows a service of that name.
bool IsServiceInstalled(std::u16string const& serviceName);

// Creates the service (own process, started on demand, normal error control,
// the quoted executable path, depending on RPCSS, LocalSystem) unless it
// exists. False, after a message box, when the manager refuses.
bool InstallService(std::u16string const& serviceName);

// Stops the service without waiting for it and deletes it; true when there is
// none. False, after a message box, when it cannot be opened or deleted.
bool UninstallService(std::u16string const& serviceName);

}  // namespace hf
