#include "supervisor/PasswordProtection.h"

#include "platform/Constants.h"
#include "platform/Errors.h"

namespace hf {

DWORD ProtectPassword(std::u16string_view password, os::DATA_BLOB& blob)
{
    os::DATA_BLOB in;
    in.cbData = static_cast<DWORD>(password.size() * sizeof(char16_t));
    in.pbData = reinterpret_cast<BYTE*>(const_cast<char16_t*>(password.data()));
    os::DATA_BLOB noEntropy;
    if (!os::CryptProtectData(&in, u"", &noEntropy, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &blob)) {
        return os::GetLastError();
    }
    return 0;
}

UnprotectedPassword::UnprotectedPassword(SecretText password, os::DATA_BLOB opened)
    : password_(std::move(password)), opened_(opened.pbData), openedSize_(opened.cbData)
{
}

void UnprotectedPassword::Wipe() noexcept
{
    password_.Wipe();
    if (opened_) {
        WipeBytes(opened_.get(), openedSize_);
        opened_.reset();
    }
}

std::optional<UnprotectedPassword> UnprotectPassword(std::u16string const& name, BYTE* blob, DWORD blobSize,
                                                     EventReporter& events)
{
    os::DATA_BLOB in;
    in.cbData = blobSize;
    in.pbData = blob;
    os::DATA_BLOB noEntropy;
    os::DATA_BLOB out;
    // The description is asked for and never looked at or released: a few
    // bytes of the service's heap per launch.
    WCHAR* description = nullptr;
    if (!os::CryptUnprotectData(&in, &description, &noEntropy, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out)) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_DECRYPT_PASSWORD_FAILED, {name, LastErrorText()});
        return std::nullopt;
    }
    SecretText password(reinterpret_cast<const WCHAR*>(out.pbData), out.cbData / sizeof(WCHAR));
    return UnprotectedPassword(std::move(password), out);
}

}  // namespace hf
