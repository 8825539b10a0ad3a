// What the watcher's Wine suite needs to know of the system it runs on. The
// header does not include <windows.h>, so the suite can use the seam's constants.
#pragma once

#include <string>

namespace hf::test {

// True when the suite runs under Wine rather than on Windows.
bool RunningUnderWine();

// Conversions between the seam's strings and the system's wide strings.
inline std::wstring Wide(std::u16string const& text)
{
    return std::wstring(text.begin(), text.end());
}

inline std::u16string Utf16(std::wstring const& text)
{
    return std::u16string(text.begin(), text.end());
}

}  // namespace hf::test
