#include "supervisor/UserStore.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Registry.h"
#include "supervisor/BinaryValueReader.h"
#include "supervisor/PasswordProtection.h"

namespace hf {

namespace {
constexpr DWORD kFirstNameCapacity = 64;
}

UserStore UserStore::Open()
{
    HKEY key = nullptr;
    DWORD disposition = 0;
    LONG const status = os::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, 0, nullptr, 0,
                                            KEY_ALL_ACCESS_READ_WRITE, nullptr, &key, &disposition);
    return UserStore(status, status == 0 ? key : nullptr);
}

LONG UserStore::IsInstalled(std::u16string const& name, bool& installed) const
{
    BinaryValueReader const value(key(), name);
    installed = value.status() == 0;
    LONG const status = value.status();
    if (status == static_cast<LONG>(ERROR_FILE_NOT_FOUND) || status == static_cast<LONG>(ERROR_PATH_NOT_FOUND)) {
        return 0;
    }
    return status;
}

LONG UserStore::Install(std::u16string const& name, std::u16string_view password) const
{
    os::DATA_BLOB blob;
    if (DWORD const error = ProtectPassword(password, blob); error != 0) {
        return static_cast<LONG>(error);
    }
    UniqueLocalMemory const sealed(blob.pbData);
    return os::RegSetValueExW(key(), name.c_str(), 0, REG_BINARY, blob.pbData, blob.cbData);
}

LONG UserStore::Uninstall(std::u16string const& name) const
{
    return os::RegDeleteValueW(key(), name.c_str());
}

void EnumerateUsers(HKEY key, EventReporter& events, std::vector<std::u16string>& out)
{
    std::u16string name(kFirstNameCapacity, u'\0');
    DWORD index = 0;
    for (;;) {
        auto length = static_cast<DWORD>(name.size());
        DWORD type = 0;
        LONG const result = os::RegEnumValueW(key, index, name.data(), &length, nullptr, &type, nullptr, nullptr);
        if (result == 0) {
            std::u16string const found = name.substr(0, length);
            events.Report(EVENTLOG_SUCCESS, MSG_FOUND_INSTALLED_USER, {found});
            out.push_back(found);
            ++index;
            continue;
        }
        if (result == static_cast<LONG>(ERROR_INSUFFICIENT_BUFFER) || result == static_cast<LONG>(ERROR_MORE_DATA)) {
            name.resize(name.size() * 2);
            continue;
        }
        if (result == static_cast<LONG>(ERROR_NO_MORE_ITEMS)) {
            if (index == 0) {
                events.Report(EVENTLOG_INFORMATION_TYPE, MSG_NO_USERS);
            }
            return;
        }
        events.Report(EVENTLOG_ERROR_TYPE, MSG_ENUM_USER_ERROR,
                      {DecimalText(result), DecimalText(static_cast<std::int32_t>(index))});
        return;
    }
}

}  // namespace hf
