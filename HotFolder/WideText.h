// Small conversions between the core's UTF-16 strings and the narrow and
// numeric texts it reports with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace hf {

// An ASCII text as UTF-16.
std::u16string Widen(std::string_view ascii);

// UTF-16 as UTF-8, for diagnostics and test output; an unpaired surrogate
// becomes U+FFFD.
std::string ToUtf8(std::u16string_view text);

// UTF-8 as UTF-16 (test input, scripts); malformed bytes become U+FFFD.
std::u16string FromUtf8(std::string_view text);

// A number as "%d" formats it: signed decimal.
std::u16string DecimalText(std::int32_t value);

// A number as "0x%x" formats it: lower-case hexadecimal without leading zeros.
std::u16string HexText(std::uint32_t value);

// Folds a to z onto A to Z and leaves every other code unit as it is.
constexpr char16_t AsciiUpper(char16_t c)
{
    return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - u'a' + u'A') : c;
}

std::u16string AsciiUpper(std::u16string_view text);

// Compares with only the letters A to Z folded, code unit by code unit.
bool EqualsIgnoringAsciiCase(std::u16string_view a, std::u16string_view b);

}  // namespace hf
