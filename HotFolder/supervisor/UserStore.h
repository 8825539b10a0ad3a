// The installed users: one registry key of the local machine with one
// REG_BINARY value per account, named DOMAIN\user, holding the account's
// password sealed by the data protection API to the service's own account.
// The store keeps nothing in memory: every call goes to the registry, and each
// caller opens its own key handle.
#pragma once

#include "EventReporter.h"
#include "platform/Types.h"
#include "platform/UniqueHandle.h"

#include <string>
#include <string_view>
#include <vector>

namespace hf {

// HKEY_LOCAL_MACHINE\<this>.
inline constexpr char16_t kUserStoreKeyPath[] = u"SOFTWARE\\Orvanta\\Tarnwick\\4\\HotFolderUsers";

class UserStore {
public:
    // Opens the key for reading and writing, creating it (with default
    // security) when it is missing. The caller looks at status().
    static UserStore Open();

    // The registry's answer to the open; 0 means open.
    LONG status() const { return status_; }
    // The open key; null when the open failed.
    HKEY key() const { return key_.get(); }

    // Whether `name` has a readable binary value. A missing value is "not
    // installed" with result 0; any other failure to read it (ERROR_INVALID_DATA
    // for a value of another type, ERROR_MORE_DATA for one of more than 256
    // bytes) is the result, and `installed` is then false.
    LONG IsInstalled(std::u16string const& name, bool& installed) const;

    // Seals the password (its UTF-16 code units as counted, embedded NULs
    // included, no terminator) and writes it as the value `name`, replacing an
    // existing one. The result is the registry's, or the sealing's error.
    LONG Install(std::u16string const& name, std::u16string_view password) const;

    // Deletes the value `name`; ERROR_FILE_NOT_FOUND when there is none.
    LONG Uninstall(std::u16string const& name) const;

private:
    UserStore(LONG status, HKEY key) : status_(status), key_(key) {}

    LONG status_;
    UniqueRegistryKey key_;
};

// Appends the name of every value of `key` to `out`, in the registry's order,
// reporting each one found (message 4), an empty key (message 6) or the error
// that ends the listing (message 5).
void EnumerateUsers(HKEY key, EventReporter& events, std::vector<std::u16string>& out);

}  // namespace hf
