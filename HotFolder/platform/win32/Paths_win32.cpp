// The shell's path functions and the string comparisons, forwarded to Windows.
#include <windows.h>

#include <shlwapi.h>
#include <wchar.h>

#include "platform/Paths.h"

namespace hf::os {

namespace {

LPCWSTR Wide(const WCHAR* text)
{
    return reinterpret_cast<LPCWSTR>(text);
}

LPWSTR Wide(WCHAR* text)
{
    return reinterpret_cast<LPWSTR>(text);
}

}  // namespace

BOOL PathIsRelativeW(const WCHAR* path)
{
    return ::PathIsRelativeW(Wide(path));
}

BOOL PathCanonicalizeW(WCHAR* destination, const WCHAR* source)
{
    // Windows refuses a path that does not fit a MAX_PATH buffer; Wine would
    // write the canonical form past the end of `destination`. The canonical
    // form is never longer than its source but for a bare "C:", so a source
    // that fits keeps every system within the buffer.
    if (source != nullptr && ::wcslen(reinterpret_cast<const wchar_t*>(source)) >= MAX_PATH) {
        if (destination != nullptr) {
            destination[0] = 0;
        }
        ::SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return FALSE;
    }
    return ::PathCanonicalizeW(Wide(destination), Wide(source));
}

BOOL PathRemoveFileSpecW(WCHAR* path)
{
    return ::PathRemoveFileSpecW(Wide(path));
}

const WCHAR* PathFindFileNameW(const WCHAR* path)
{
    return reinterpret_cast<const WCHAR*>(::PathFindFileNameW(Wide(path)));
}

WCHAR* PathFindFileNameW(WCHAR* path)
{
    return reinterpret_cast<WCHAR*>(::PathFindFileNameW(Wide(path)));
}

BOOL PathMatchSpecW(const WCHAR* file, const WCHAR* spec)
{
    return ::PathMatchSpecW(Wide(file), Wide(spec));
}

BOOL PathIsDirectoryW(const WCHAR* path)
{
    // Windows answers with the directory attribute (0x10) rather than TRUE.
    return ::PathIsDirectoryW(Wide(path)) ? 1 : 0;
}

int CompareStringW(DWORD locale, DWORD flags, const WCHAR* string1, int count1, const WCHAR* string2, int count2)
{
    return ::CompareStringW(locale, flags, Wide(string1), count1, Wide(string2), count2);
}

int _wcsicmp(const WCHAR* string1, const WCHAR* string2)
{
    return ::_wcsicmp(reinterpret_cast<const wchar_t*>(string1), reinterpret_cast<const wchar_t*>(string2));
}

}  // namespace hf::os
