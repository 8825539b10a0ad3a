#include <windows.h>

#include "WineTestSupport.h"

#include <cstdlib>

namespace hf::test {

std::wstring WindowsPathFromEnvironment(char const* variable)
{
    char const* const unixPath = std::getenv(variable);
    std::wstring path = unixPath ? L"Z:" : L"";
    for (char const* c = unixPath; c && *c != 0; ++c) {
        path += *c == '/' ? L'\\' : static_cast<wchar_t>(static_cast<unsigned char>(*c));
    }
    return path;
}

bool RunningUnderWine()
{
    HMODULE const ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

}  // namespace hf::test
