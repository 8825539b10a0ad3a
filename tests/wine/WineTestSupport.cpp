#include <windows.h>

#include "WineTestSupport.h"

namespace hf::test {

bool RunningUnderWine()
{
    HMODULE const ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

}  // namespace hf::test
