#include "WideText.h"

namespace hf {

std::u16string Widen(std::string_view ascii)
{
    return std::u16string(ascii.begin(), ascii.end());
}

std::string ToUtf8(std::u16string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t cp = text[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;
        }
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

std::u16string FromUtf8(std::string_view text)
{
    std::u16string out;
    std::size_t i = 0;
    while (i < text.size()) {
        auto const lead = static_cast<unsigned char>(text[i]);
        int extra = lead < 0x80 ? 0 : (lead >> 5) == 0x6 ? 1 : (lead >> 4) == 0xE ? 2 : (lead >> 3) == 0x1E ? 3 : -1;
        if (extra < 0 || i + static_cast<std::size_t>(extra) >= text.size()) {
            out += u'\uFFFD';
            ++i;
            continue;
        }
        std::uint32_t cp = extra == 0 ? lead : (lead & (0x3F >> extra));
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            auto const c = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
            ok = ok && (c & 0xC0) == 0x80;
            cp = (cp << 6) | (c & 0x3F);
        }
        if (!ok) {
            out += u'\uFFFD';
            ++i;
            continue;
        }
        i += static_cast<std::size_t>(extra) + 1;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (cp >> 10));
            out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            out += static_cast<char16_t>(cp);
        }
    }
    return out;
}

std::u16string DecimalText(std::int32_t value)
{
    return Widen(std::to_string(value));
}

std::u16string HexText(std::uint32_t value)
{
    static char const digits[] = "0123456789abcdef";
    std::u16string out;
    do {
        out.insert(out.begin(), static_cast<char16_t>(digits[value & 0xF]));
        value >>= 4;
    } while (value != 0);
    return u"0x" + out;
}

std::u16string AsciiUpper(std::u16string_view text)
{
    std::u16string out(text);
    for (auto& c : out) {
        c = AsciiUpper(c);
    }
    return out;
}

bool EqualsIgnoringAsciiCase(std::u16string_view a, std::u16string_view b)
{
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (AsciiUpper(a[i]) != AsciiUpper(b[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace hf
