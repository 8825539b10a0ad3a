// The simulated registry: keys under the predefined roots, names compared
// without regard to ASCII case, values kept in the order they were first written.
#pragma once

#include "platform/Types.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace hf::sim {

struct RegistryValue {
    std::u16string name;
    DWORD type = 0;
    std::vector<BYTE> data;
};

struct RegistryKey {
    std::vector<RegistryValue> values;  // in first-written order

    RegistryValue* Find(std::u16string_view name);
    // Replaces the value of that name in its place, or adds it last.
    void Set(std::u16string_view name, DWORD type, std::vector<BYTE> data);
};

class Registry {
public:
    // Test helpers. `path` is relative to `root`, backslash-separated.
    void CreateKey(HKEY root, std::u16string const& path) { Create(Join(root, path)); }
    void SetString(HKEY root, std::u16string const& path, std::u16string const& name, std::u16string const& text,
                   DWORD type = 1 /*REG_SZ*/);
    void SetRaw(HKEY root, std::u16string const& path, std::u16string const& name, DWORD type,
                std::vector<BYTE> const& data)
    {
        Create(Join(root, path)).Set(name, type, data);
    }
    std::optional<RegistryValue> Value(HKEY root, std::u16string const& path, std::u16string const& name);
    // A value's text up to its first NUL.
    std::optional<std::u16string> String(HKEY root, std::u16string const& path, std::u16string const& name);
    // The paths, relative to `root` and upper-cased, of the key `path` and of
    // every key below it, in order.
    std::vector<std::u16string> KeysBelow(HKEY root, std::u16string const& path) const;

    // Backend access: full key paths are "ROOT\\sub\\key" with a canonical root name.
    static std::u16string RootName(HKEY root);
    static std::u16string Join(HKEY root, std::u16string const& path);
    RegistryKey* Find(std::u16string const& fullPath);
    // Creates the key and every missing ancestor, as Windows does.
    RegistryKey& Create(std::u16string const& fullPath);
    // Removes the key and, with `tree`, every key below it.
    void Erase(std::u16string const& fullPath, bool tree);
    bool HasSubkeys(std::u16string const& fullPath) const;
    void Clear() { keys_.clear(); }

private:
    // Keyed by the normalized (upper-cased) full path.
    std::map<std::u16string, RegistryKey> keys_;
};

}  // namespace hf::sim
