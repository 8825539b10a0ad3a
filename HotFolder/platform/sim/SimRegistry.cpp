#include "platform/sim/SimRegistry.h"

#include "WideText.h"

#include <algorithm>
#include <cstring>

namespace hf::sim {

namespace {

std::u16string Join(HKEY root, std::u16string const& path)
{
    return path.empty() ? Registry::RootName(root) : Registry::RootName(root) + u"\\" + path;
}

}  // namespace

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

std::u16string Registry::Normalize(std::u16string const& fullPath)
{
    // Collapse doubled separators and drop trailing ones, then fold case.
    std::u16string out;
    for (char16_t c : fullPath) {
        if (c == u'\\' && (out.empty() || out.back() == u'\\')) {
            continue;
        }
        out += c;
    }
    while (!out.empty() && out.back() == u'\\') {
        out.pop_back();
    }
    return AsciiUpper(out);
}

RegistryKey* Registry::Find(std::u16string const& fullPath)
{
    auto it = keys_.find(Normalize(fullPath));
    return it == keys_.end() ? nullptr : &it->second;
}

RegistryKey& Registry::Create(std::u16string const& fullPath)
{
    std::u16string const normalized = Normalize(fullPath);
    // Every ancestor exists too, as on Windows.
    for (std::size_t pos = normalized.find(u'\\'); pos != std::u16string::npos; pos = normalized.find(u'\\', pos + 1)) {
        keys_[normalized.substr(0, pos)];
    }
    return keys_[normalized];
}

bool Registry::Erase(std::u16string const& fullPath)
{
    return keys_.erase(Normalize(fullPath)) != 0;
}

bool Registry::HasSubkeys(std::u16string const& fullPath) const
{
    std::u16string const prefix = Normalize(fullPath) + u"\\";
    auto it = keys_.lower_bound(prefix);
    return it != keys_.end() && it->first.compare(0, prefix.size(), prefix) == 0;
}

void Registry::CreateKey(HKEY root, std::u16string const& path)
{
    Create(Join(root, path));
}

bool Registry::KeyExists(HKEY root, std::u16string const& path) const
{
    return keys_.count(Normalize(Join(root, path))) != 0;
}

void Registry::DeleteKeyTree(HKEY root, std::u16string const& path)
{
    EraseTree(Join(root, path));
}

void Registry::EraseTree(std::u16string const& fullPath)
{
    std::u16string const key = Normalize(fullPath);
    std::u16string const prefix = key + u"\\";
    for (auto it = keys_.begin(); it != keys_.end();) {
        if (it->first == key || it->first.compare(0, prefix.size(), prefix) == 0) {
            it = keys_.erase(it);
        } else {
            ++it;
        }
    }
}

std::vector<std::u16string> Registry::KeysBelow(HKEY root, std::u16string const& path) const
{
    std::u16string const rootName = Normalize(RootName(root)) + u"\\";
    std::u16string const key = Normalize(Join(root, path));
    std::vector<std::u16string> keys;
    for (auto it = keys_.lower_bound(key); it != keys_.end() && it->first.compare(0, key.size(), key) == 0; ++it) {
        if (it->first.size() == key.size() || it->first[key.size()] == u'\\') {
            keys.push_back(it->first.substr(std::min(rootName.size(), it->first.size())));
        }
    }
    return keys;
}

void Registry::SetRaw(HKEY root, std::u16string const& path, std::u16string const& name, DWORD type,
                      std::vector<BYTE> const& data)
{
    RegistryKey& key = Create(Join(root, path));
    for (auto& value : key.values) {
        if (AsciiUpper(value.name) == AsciiUpper(name)) {
            value.type = type;
            value.data = data;
            return;
        }
    }
    key.values.push_back(RegistryValue{name, type, data});
}

void Registry::SetString(HKEY root, std::u16string const& path, std::u16string const& name, std::u16string const& text,
                         DWORD type)
{
    std::vector<BYTE> data((text.size() + 1) * sizeof(char16_t));
    std::memcpy(data.data(), text.c_str(), data.size());
    SetRaw(root, path, name, type, data);
}

std::optional<RegistryValue> Registry::Value(HKEY root, std::u16string const& path, std::u16string const& name) const
{
    auto it = keys_.find(Normalize(Join(root, path)));
    if (it == keys_.end()) {
        return std::nullopt;
    }
    for (auto const& value : it->second.values) {
        if (AsciiUpper(value.name) == AsciiUpper(name)) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<std::u16string> Registry::String(HKEY root, std::u16string const& path, std::u16string const& name) const
{
    auto value = Value(root, path, name);
    if (!value) {
        return std::nullopt;
    }
    std::u16string text(value->data.size() / 2, u'\0');
    std::memcpy(text.data(), value->data.data(), text.size() * 2);
    auto const end = text.find(u'\0');
    return end == std::u16string::npos ? text : text.substr(0, end);
}

}  // namespace hf::sim
