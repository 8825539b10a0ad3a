#include "platform/sim/SimProfile.h"

#include "WideText.h"
#include "platform/sim/SimCaseFold.h"

#include <algorithm>

namespace hf::sim {

namespace {

std::u16string DecodeText(std::string const& bytes)
{
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
        static_cast<unsigned char>(bytes[1]) == 0xFE) {
        std::u16string text;
        for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
            text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                          (static_cast<unsigned char>(bytes[i + 1]) << 8));
        }
        return text;
    }
    if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        return FromUtf8(std::string_view(bytes).substr(3));
    }
    return FromUtf8(bytes);
}

// The blanks the profile reader drops: spaces, tabs and the other white space
// of the C locale, and the end-of-file mark ^Z.
bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\v' || c == u'\f' || c == 0x1A;
}

std::u16string Trim(std::u16string const& text)
{
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && IsBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && IsBlank(text[end - 1])) {
        --end;
    }
    return text.substr(begin, end - begin);
}

std::u16string Unquoted(std::u16string value)
{
    if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') && value.back() == value.front()) {
        return value.substr(1, value.size() - 2);
    }
    return value;
}

}  // namespace

std::optional<std::u16string> ReadProfileString(std::string const& bytes, std::u16string const& section,
                                                std::u16string const& key)
{
    std::u16string const wantedSection = FoldCase(section);
    std::u16string const wantedKey = FoldCase(key);
    bool inSection = false;
    bool sectionSeen = false;
    std::u16string const text = DecodeText(bytes);
    // Lines end at CR, LF or both (a CR LF pair makes one empty line more, which holds nothing).
    for (std::size_t begin = 0, end = 0; begin <= text.size(); begin = end + 1) {
        end = std::min(text.find_first_of(u"\r\n", begin), text.size());
        std::u16string const line = Trim(text.substr(begin, end - begin));
        if (line.empty()) {
            continue;
        }
        if (line.front() == u'[') {
            std::size_t const close = line.rfind(u']');
            if (close != std::u16string::npos) {
                if (inSection) {
                    return std::nullopt;  // only the first section of the name is read
                }
                inSection = !sectionSeen && FoldCase(Trim(line.substr(1, close - 1))) == wantedSection;
                sectionSeen = sectionSeen || inSection;
                continue;
            }
            // A header without its "]" is read as a key line of the current section.
        }
        std::size_t const equals = line.find(u'=');
        if (!inSection || equals == std::u16string::npos) {
            continue;  // a line without "=" holds no value
        }
        if (FoldCase(Trim(line.substr(0, equals))) == wantedKey) {
            return Unquoted(Trim(line.substr(equals + 1)));
        }
    }
    return std::nullopt;
}

}  // namespace hf::sim
