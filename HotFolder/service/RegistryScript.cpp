#include "service/RegistryScript.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/Resources.h"
#include "platform/UniqueHandle.h"

#include <optional>
#include <vector>

namespace hf {

namespace {

enum class Mark { None, NoRemove, ForceRemove };

struct ScriptValue {
    std::u16string name;
    std::u16string text;
};

struct ScriptKey {
    std::u16string name;
    Mark mark = Mark::None;
    std::optional<std::u16string> defaultValue;
    std::vector<ScriptValue> values;
    std::vector<ScriptKey> keys;
};

// Splits the script into words, quoted names and the marks { } =, with the
// replacements already made. Any error leaves `failed` set.
class Tokenizer {
public:
    Tokenizer(std::u16string_view text, RegistryReplacements const& replacements)
        : text_(text), replacements_(replacements)
    {
    }

    bool failed = false;

    // The next token; empty at the end (or after an error).
    std::u16string Next(bool* quoted = nullptr)
    {
        while (position_ < text_.size() && IsBlank(text_[position_])) {
            ++position_;
        }
        if (quoted) {
            *quoted = false;
        }
        if (failed || position_ == text_.size()) {
            return {};
        }
        char16_t const c = text_[position_];
        if (c == u'{' || c == u'}' || c == u'=') {
            ++position_;
            return std::u16string(1, c);
        }
        std::u16string raw;
        if (c == u'\'') {
            if (quoted) {
                *quoted = true;
            }
            raw = Quoted();
        } else {
            while (position_ < text_.size() && !IsBlank(text_[position_]) && !IsMark(text_[position_]) &&
                   text_[position_] != u'\'') {
                raw += text_[position_++];
            }
        }
        return Replaced(raw);
    }

    std::u16string Peek()
    {
        std::size_t const saved = position_;
        std::u16string token = Next();
        position_ = saved;
        return token;
    }

private:
    static bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }
    static bool IsMark(char16_t c) { return c == u'{' || c == u'}' || c == u'='; }

    std::u16string Quoted()
    {
        std::u16string raw;
        ++position_;
        for (;;) {
            if (position_ == text_.size()) {
                failed = true;
                return {};
            }
            char16_t const c = text_[position_++];
            if (c != u'\'') {
                raw += c;
            } else if (position_ < text_.size() && text_[position_] == u'\'') {
                raw += c;
                ++position_;
            } else {
                return raw;
            }
        }
    }

    std::u16string Replaced(std::u16string const& raw)
    {
        std::u16string out;
        for (std::size_t i = 0; i < raw.size(); ++i) {
            if (raw[i] != u'%') {
                out += raw[i];
                continue;
            }
            std::size_t const end = raw.find(u'%', i + 1);
            if (end == std::u16string::npos) {
                failed = true;
                return {};
            }
            std::u16string const name = raw.substr(i + 1, end - i - 1);
            if (name.empty()) {
                out += u'%';
            } else if (auto const found = replacements_.find(name); found != replacements_.end()) {
                out += found->second;
            } else {
                failed = true;
                return {};
            }
            i = end;
        }
        return out;
    }

    std::u16string_view text_;
    RegistryReplacements const& replacements_;
    std::size_t position_ = 0;
};

class Parser {
public:
    explicit Parser(Tokenizer& tokens) : tokens_(tokens) {}

    // The keys below HKCR; false when the script does not parse.
    bool Script(std::vector<ScriptKey>& keys)
    {
        std::u16string root = tokens_.Next();
        if (!EqualsIgnoringAsciiCase(root, u"HKCR") && !EqualsIgnoringAsciiCase(root, u"HKEY_CLASSES_ROOT")) {
            return false;
        }
        return Expect(u"{") && Body(keys, nullptr) && tokens_.Next().empty() && !tokens_.failed;
    }

private:
    bool Expect(std::u16string_view token) { return tokens_.Next() == token; }

    // A string value: "s 'text'".
    bool Value(std::u16string& text)
    {
        if (!EqualsIgnoringAsciiCase(tokens_.Next(), u"s")) {
            return false;
        }
        bool quoted = false;
        text = tokens_.Next(&quoted);
        return quoted;
    }

    // Keys (and, inside a key, named values) up to the closing brace.
    bool Body(std::vector<ScriptKey>& keys, std::vector<ScriptValue>* values)
    {
        for (;;) {
            bool quoted = false;
            std::u16string word = tokens_.Next(&quoted);
            if (tokens_.failed || word.empty()) {
                return false;
            }
            if (!quoted && word == u"}") {
                return true;
            }
            if (!quoted && values && EqualsIgnoringAsciiCase(word, u"val")) {
                ScriptValue value;
                value.name = tokens_.Next();
                if (!Expect(u"=") || !Value(value.text)) {
                    return false;
                }
                values->push_back(std::move(value));
                continue;
            }
            ScriptKey key;
            if (!quoted && EqualsIgnoringAsciiCase(word, u"NoRemove")) {
                key.mark = Mark::NoRemove;
                word = tokens_.Next(&quoted);
            } else if (!quoted && EqualsIgnoringAsciiCase(word, u"ForceRemove")) {
                key.mark = Mark::ForceRemove;
                word = tokens_.Next(&quoted);
            }
            if (word.empty() || (!quoted && (word == u"{" || word == u"}" || word == u"="))) {
                return false;
            }
            key.name = word;
            if (tokens_.Peek() == u"=") {
                tokens_.Next();
                key.defaultValue.emplace();
                if (!Value(*key.defaultValue)) {
                    return false;
                }
            }
            if (tokens_.Peek() == u"{") {
                tokens_.Next();
                if (!Body(key.keys, &key.values)) {
                    return false;
                }
            }
            keys.push_back(std::move(key));
        }
    }

    Tokenizer& tokens_;
};

LONG SetString(HKEY key, const WCHAR* name, std::u16string const& text)
{
    auto const bytes = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
    return os::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes);
}

LONG RegisterKey(HKEY parent, ScriptKey const& key)
{
    if (key.mark == Mark::ForceRemove) {
        LONG const removed = os::RegDeleteTreeW(parent, key.name.c_str());
        if (removed != 0 && removed != static_cast<LONG>(ERROR_FILE_NOT_FOUND)) {
            return removed;
        }
    }
    UniqueRegistryKey opened;
    LONG result = os::RegCreateKeyExW(parent, key.name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS_READ_WRITE, nullptr,
                                      opened.put(), nullptr);
    if (result == 0 && key.defaultValue) {
        result = SetString(opened.get(), nullptr, *key.defaultValue);
    }
    for (auto const& value : key.values) {
        if (result == 0) {
            result = SetString(opened.get(), value.name.c_str(), value.text);
        }
    }
    for (auto const& subkey : key.keys) {
        if (result == 0) {
            result = RegisterKey(opened.get(), subkey);
        }
    }
    return result;
}

// Deleting is best effort: a key that is gone already is fine, and a key that
// still holds others' subkeys stays (RegDeleteKeyW refuses it).
void UnregisterKey(HKEY parent, ScriptKey const& key)
{
    if (key.mark == Mark::ForceRemove) {
        os::RegDeleteTreeW(parent, key.name.c_str());
        return;
    }
    UniqueRegistryKey opened;
    if (os::RegOpenKeyExW(parent, key.name.c_str(), 0, KEY_ALL_ACCESS_READ_WRITE, opened.put()) != 0) {
        return;
    }
    for (auto const& subkey : key.keys) {
        UnregisterKey(opened.get(), subkey);
    }
    if (key.mark == Mark::NoRemove) {
        for (auto const& value : key.values) {
            os::RegDeleteValueW(opened.get(), value.name.c_str());
        }
        return;
    }
    opened.reset();
    os::RegDeleteKeyW(parent, key.name.c_str());
}

}  // namespace

HRESULT ApplyRegistryScript(std::u16string_view script, RegistryReplacements const& replacements, HKEY root,
                            bool registering)
{
    Tokenizer tokens(script, replacements);
    std::vector<ScriptKey> keys;
    if (!Parser(tokens).Script(keys)) {
        return E_FAIL;
    }
    for (auto const& key : keys) {
        if (!registering) {
            UnregisterKey(root, key);
        } else if (LONG const result = RegisterKey(root, key); result != 0) {
            return HResultFromWin32(static_cast<DWORD>(result));
        }
    }
    return S_OK;
}

HRESULT LoadRegistryScript(unsigned id, std::u16string& script)
{
    HINSTANCE const executable = os::GetModuleHandleW(nullptr);
    HRSRC const resource = os::FindResourceW(executable, os::MakeIntResource(id), u"REGISTRY");
    HGLOBAL const loaded = resource ? os::LoadResource(executable, resource) : nullptr;
    auto const* bytes = loaded ? static_cast<const char*>(os::LockResource(loaded)) : nullptr;
    if (bytes == nullptr) {
        return HResultFromWin32(os::GetLastError());
    }
    script = Widen(std::string_view(bytes, os::SizeofResource(executable, resource)));
    return S_OK;
}

}  // namespace hf
