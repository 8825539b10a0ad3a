#include "platform/sim/SimRegistry.h"

#include "WideText.h"

#include <cstring>

namespace hf::sim {

namespace {

// Doubled and trailing separators dropped, case folded.
std::u16string Normalize(std::u16string const& fullPath)
{
    std::u16string out;
    for (char16_t c : fullPath) {
        if (c != u'\\' || (!out.empty() && out.back() != u'\\')) {
            out += c;
        }
    }
    while (!out.empty() && out.back() == u'\\') {
        out.pop_back();
    }
    return AsciiUpper(out);
}

bool IsBelow(std::u16string const& key, std::u16string const& parent)
{
    return key.size() > parent.size() && key.compare(0, parent.size(), parent) == 0 && key[parent.size()] == u'\\';
}

}  // namespace

RegistryValue* RegistryKey::Find(std::u16string_view name)
{
    for (auto& value : values) {
        if (EqualsIgnoringAsciiCase(value.name, name)) {
            return &value;
        }
    }
    return nullptr;
}

void RegistryKey::Set(std::u16string_view name, DWORD type, std::vector<BYTE> data)
{
    if (RegistryValue* value = Find(name)) {
        *value = RegistryValue{value->name, type, std::move(data)};
    } else {
        values.push_back(RegistryValue{std::u16string(name), type, std::move(data)});
    }
}

std::u16string Registry::RootName(HKEY root)
{
    switch (static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(root))) {
        case 0x80000000u:
            return u"HKEY_CLASSES_ROOT";
        case 0x80000001u:
            return u"HKEY_CURRENT_USER";
        case 0x80000002u:
            return u"HKEY_LOCAL_MACHINE";
        default:
            return u"";
    }
}

std::u16string Registry::Join(HKEY root, std::u16string const& path)
{
    return RootName(root) + u"\\" + path;
}

RegistryKey* Registry::Find(std::u16string const& fullPath)
{
    auto it = keys_.find(Normalize(fullPath));
    return it == keys_.end() ? nullptr : &it->second;
}

RegistryKey& Registry::Create(std::u16string const& fullPath)
{
    std::u16string const normalized = Normalize(fullPath);
    for (std::size_t pos = normalized.find(u'\\'); pos != std::u16string::npos; pos = normalized.find(u'\\', pos + 1)) {
        keys_[normalized.substr(0, pos)];
    }
    return keys_[normalized];
}

void Registry::Erase(std::u16string const& fullPath, bool tree)
{
    std::u16string const key = Normalize(fullPath);
    keys_.erase(key);
    for (auto it = keys_.lower_bound(key + u"\\"); tree && it != keys_.end() && IsBelow(it->first, key);) {
        it = keys_.erase(it);
    }
}

bool Registry::HasSubkeys(std::u16string const& fullPath) const
{
    std::u16string const key = Normalize(fullPath);
    auto it = keys_.lower_bound(key + u"\\");
    return it != keys_.end() && IsBelow(it->first, key);
}

std::vector<std::u16string> Registry::KeysBelow(HKEY root, std::u16string const& path) const
{
    std::size_t const rootLength = RootName(root).size() + 1;
    std::u16string const key = Normalize(Join(root, path));
    std::vector<std::u16string> keys;
    for (auto it = keys_.lower_bound(key); it != keys_.end() && it->first.compare(0, key.size(), key) == 0; ++it) {
        if (it->first == key || IsBelow(it->first, key)) {
            keys.push_back(it->first.substr(std::min(rootLength, it->first.size())));
        }
    }
    return keys;
}

void Registry::SetString(HKEY root, std::u16string const& path, std::u16string const& name, std::u16string const& text,
                         DWORD type)
{
    auto const* bytes = reinterpret_cast<BYTE const*>(text.c_str());
    SetRaw(root, path, name, type, std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(char16_t)));
}

std::optional<RegistryValue> Registry::Value(HKEY root, std::u16string const& path, std::u16string const& name)
{
    RegistryKey* key = Find(Join(root, path));
    RegistryValue* value = key ? key->Find(name) : nullptr;
    return value ? std::optional<RegistryValue>(*value) : std::nullopt;
}

std::optional<std::u16string> Registry::String(HKEY root, std::u16string const& path, std::u16string const& name)
{
    auto value = Value(root, path, name);
    if (!value) {
        return std::nullopt;
    }
    std::u16string text(value->data.size() / 2, u'\0');
    std::memcpy(text.data(), value->data.data(), text.size() * 2);
    return text.substr(0, text.find(u'\0'));
}

}  // namespace hf::sim
