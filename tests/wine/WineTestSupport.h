// Small helpers of the Wine suites, without <windows.h>, so that suites on the
// seam (with platform/Constants.h) can use them too.
#pragma once

#include <string>

namespace hf::test {

inline std::wstring Wide(std::u16string const& text)
{
    return std::wstring(text.begin(), text.end());
}

inline std::u16string Utf16(std::wstring const& text)
{
    return std::u16string(text.begin(), text.end());
}

// True under Wine rather than Windows (ntdll exports wine_get_version).
bool RunningUnderWine();

}  // namespace hf::test
