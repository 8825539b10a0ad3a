#include <windows.h>

#include "platform/Resources.h"

namespace hf::os {

HRSRC FindResourceW(HINSTANCE module, const WCHAR* name, const WCHAR* type)
{
    return ::FindResourceW(static_cast<HMODULE>(module), reinterpret_cast<LPCWSTR>(name),
                           reinterpret_cast<LPCWSTR>(type));
}

HGLOBAL LoadResource(HINSTANCE module, HRSRC resource)
{
    return ::LoadResource(static_cast<HMODULE>(module), static_cast<::HRSRC>(resource));
}

const void* LockResource(HGLOBAL loaded)
{
    return ::LockResource(loaded);
}

DWORD SizeofResource(HINSTANCE module, HRSRC resource)
{
    return ::SizeofResource(static_cast<HMODULE>(module), static_cast<::HRSRC>(resource));
}

}  // namespace hf::os
