#include <windows.h>

#include "RealSystem.h"

namespace hf::test {

bool RunningUnderWine()
{
    // Wine's ntdll exports wine_get_version; Windows' does not.
    HMODULE const ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

}  // namespace hf::test
