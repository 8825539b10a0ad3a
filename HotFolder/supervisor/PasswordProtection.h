// Sealing a password for the installed-user store and opening it again. The
// blob is bound to the account that sealed it (the service's), so only the
// service can open what it stored.
#pragma once

#include "EventReporter.h"
#include "platform/Crypto.h"
#include "platform/Types.h"
#include "platform/UniqueHandle.h"
#include "supervisor/SecretText.h"

#include <optional>
#include <string>
#include <string_view>

namespace hf {

// Seals exactly the password's code units (no terminator), asking no questions
// of a user and adding no entropy. Returns 0 with `blob` to be released with
// LocalFree, or the error of the sealing. The caller's password is left as it is.
DWORD ProtectPassword(std::u16string_view password, os::DATA_BLOB& blob);

// A password opened from its blob: the password, and the opened bytes it was
// copied from. Both stay in clear text until Wipe.
class UnprotectedPassword {
public:
    UnprotectedPassword(SecretText password, os::DATA_BLOB opened);
    UnprotectedPassword(UnprotectedPassword&&) noexcept = default;
    UnprotectedPassword& operator=(UnprotectedPassword&&) = delete;
    // Wipes whatever is still in clear text, so that no way out of the
    // launch (an exception included) leaves the password on the heap.
    ~UnprotectedPassword() { Wipe(); }

    SecretText const& password() const { return password_; }

    // Overwrites the password's whole buffer, then the opened bytes, and
    // releases those.
    void Wipe() noexcept;

private:
    SecretText password_;
    UniqueLocalMemory opened_;
    DWORD openedSize_;
};

// Opens the blob stored for `name`. The password is the first half of the
// opened bytes' count in UTF-16 units (an odd last byte is dropped). A failure
// is reported (message 7) and gives nothing.
std::optional<UnprotectedPassword> UnprotectPassword(std::u16string const& name, BYTE* blob, DWORD blobSize,
                                                     EventReporter& events);

}  // namespace hf
