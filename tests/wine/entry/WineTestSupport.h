// Small helpers of the Wine suites. The header does not include <windows.h>,
// so suites on the seam (with platform/Constants.h) can use it too.
#pragma once

#include <string>

namespace hf::test {

// A UTF-16 text of the tests as the system's wide string, and back.
inline std::wstring Wide(std::u16string const& text)
{
    return std::wstring(text.begin(), text.end());
}

inline std::u16string Utf16(std::wstring const& text)
{
    return std::u16string(text.begin(), text.end());
}

// The Windows path of a Unix path, through Wine's Z: drive, which maps the Unix root.
std::wstring WindowsPathOf(std::string const& unixPath);

// The path of the built TarnwickHotFolder.exe, from the environment CTest gives the suites.
std::wstring ExecutablePath();

// True when the suite runs under Wine rather than on Windows (ntdll exports wine_get_version).
bool RunningUnderWine();

}  // namespace hf::test
