#include <windows.h>

#include "WineTestSupport.h"

#include <cstdlib>

namespace hf::test {

std::wstring WindowsPathOf(std::string const& unixPath)
{
    std::wstring path = L"Z:";
    for (char c : unixPath) {
        path += c == '/' ? L'\\' : static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    return path;
}

std::wstring ExecutablePath()
{
    char const* path = std::getenv("HF_EXECUTABLE");
    return path ? WindowsPathOf(path) : std::wstring();
}

bool RunningUnderWine()
{
    HMODULE const ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

}  // namespace hf::test
