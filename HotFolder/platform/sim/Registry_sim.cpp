#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Registry.h"
#include "platform/sim/SimWorld.h"

#include <cstring>

namespace hf::os {

namespace {

class OpenKey : public sim::Object {
public:
    explicit OpenKey(std::u16string path) : path(std::move(path)) {}
    std::u16string path;
};

// The full path of an open key or predefined root; empty when `key` is neither.
std::u16string KeyPath(HKEY key)
{
    std::u16string root = sim::Registry::RootName(key);
    if (!root.empty()) {
        return root;
    }
    auto open = sim::TheWorld().LookupAs<OpenKey>(key);
    return open ? open->path : std::u16string();
}

std::u16string SubPath(std::u16string const& base, const WCHAR* subKey)
{
    return (subKey == nullptr || *subKey == 0) ? base : base + u"\\" + subKey;
}

sim::RegistryKey* FindKey(HKEY key)
{
    return sim::TheWorld().registry.Find(KeyPath(key));
}

std::u16string_view Name(const WCHAR* name)
{
    return name ? std::u16string_view(name) : std::u16string_view();
}

}  // namespace

LONG RegOpenKeyExW(HKEY key, const WCHAR* subKey, DWORD /*options*/, DWORD /*access*/, HKEY* result)
{
    if (DWORD error = 0; sim::Injected("RegOpenKeyExW", error)) {
        return static_cast<LONG>(error);
    }
    std::u16string const base = KeyPath(key);
    if (base.empty()) {
        return ERROR_INVALID_HANDLE;
    }
    std::u16string const path = SubPath(base, subKey);
    if (sim::TheWorld().registry.Find(path) == nullptr) {
        return ERROR_FILE_NOT_FOUND;
    }
    *result = sim::TheWorld().AddHandle(std::make_shared<OpenKey>(path));
    return 0;
}

LONG RegCreateKeyExW(HKEY key, const WCHAR* subKey, DWORD /*reserved*/, WCHAR* /*keyClass*/, DWORD /*options*/,
                     DWORD /*access*/, void* /*securityAttributes*/, HKEY* result, DWORD* disposition)
{
    if (DWORD error = 0; sim::Injected("RegCreateKeyExW", error)) {
        return static_cast<LONG>(error);
    }
    std::u16string const base = KeyPath(key);
    if (base.empty()) {
        return ERROR_INVALID_HANDLE;
    }
    std::u16string const path = SubPath(base, subKey);
    bool const existed = sim::TheWorld().registry.Find(path) != nullptr;
    sim::TheWorld().registry.Create(path);
    if (disposition) {
        *disposition = existed ? 2u : 1u;  // REG_OPENED_EXISTING_KEY : REG_CREATED_NEW_KEY
    }
    *result = sim::TheWorld().AddHandle(std::make_shared<OpenKey>(path));
    return 0;
}

LONG RegQueryValueExW(HKEY key, const WCHAR* valueName, DWORD* /*reserved*/, DWORD* type, BYTE* data, DWORD* dataSize)
{
    if (DWORD error = 0; sim::Injected("RegQueryValueExW", error)) {
        return static_cast<LONG>(error);
    }
    sim::RegistryKey* stored = FindKey(key);
    if (stored == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    sim::RegistryValue* value = stored->Find(Name(valueName));
    if (value == nullptr) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (type) {
        *type = value->type;
    }
    auto const size = static_cast<DWORD>(value->data.size());
    LONG const result = data != nullptr && *dataSize < size ? ERROR_MORE_DATA : 0;
    if (data != nullptr && result == 0 && size != 0) {
        std::memcpy(data, value->data.data(), size);
    }
    if (dataSize) {
        *dataSize = size;
    }
    return result;
}

LONG RegSetValueExW(HKEY key, const WCHAR* valueName, DWORD /*reserved*/, DWORD type, const BYTE* data, DWORD dataSize)
{
    if (DWORD error = 0; sim::Injected("RegSetValueExW", error)) {
        return static_cast<LONG>(error);
    }
    sim::RegistryKey* stored = FindKey(key);
    if (stored == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    stored->Set(Name(valueName), type, std::vector<BYTE>(data, data + dataSize));
    return 0;
}

LONG RegDeleteValueW(HKEY key, const WCHAR* valueName)
{
    sim::RegistryKey* stored = FindKey(key);
    if (stored == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    sim::RegistryValue* value = stored->Find(Name(valueName));
    if (value == nullptr) {
        return ERROR_FILE_NOT_FOUND;
    }
    stored->values.erase(stored->values.begin() + (value - stored->values.data()));
    return 0;
}

LONG RegDeleteKeyW(HKEY key, const WCHAR* subKey)
{
    std::u16string const path = SubPath(KeyPath(key), subKey);
    auto& registry = sim::TheWorld().registry;
    if (registry.Find(path) == nullptr) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (registry.HasSubkeys(path)) {
        return ERROR_ACCESS_DENIED;
    }
    registry.Erase(path, false);
    return 0;
}

LONG RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameLength, DWORD* /*reserved*/, DWORD* type,
                   BYTE* /*data*/, DWORD* /*dataSize*/)
{
    sim::RegistryKey* stored = FindKey(key);
    if (stored == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    if (index >= stored->values.size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    sim::RegistryValue const& value = stored->values[index];
    if (value.name.size() + 1 > *nameLength) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(name, value.name.c_str(), (value.name.size() + 1) * sizeof(WCHAR));
    *nameLength = static_cast<DWORD>(value.name.size());
    if (type) {
        *type = value.type;
    }
    return 0;
}

LONG RegDeleteTreeW(HKEY key, const WCHAR* subKey)
{
    std::u16string const base = KeyPath(key);
    std::u16string const path = SubPath(base, subKey);
    if (base.empty() || sim::TheWorld().registry.Find(path) == nullptr) {
        return ERROR_FILE_NOT_FOUND;
    }
    sim::TheWorld().registry.Erase(path, true);
    return 0;
}

LONG RegCloseKey(HKEY key)
{
    if (!sim::Registry::RootName(key).empty()) {
        return 0;
    }
    return sim::TheWorld().CloseHandle(key) ? 0 : ERROR_INVALID_HANDLE;
}

}  // namespace hf::os
