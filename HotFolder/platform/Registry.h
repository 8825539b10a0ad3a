// The registry: keys under the predefined roots, string, binary and DWORD values.
// Every call returns a Win32 error code (LONG), as the registry API does.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// RegOpenKeyExW: opens an existing subkey; ERROR_FILE_NOT_FOUND when it is missing.
LONG RegOpenKeyExW(HKEY key, const WCHAR* subKey, DWORD options, DWORD access, HKEY* result);

// RegCreateKeyExW: opens a subkey, creating it (and missing parents) first.
LONG RegCreateKeyExW(HKEY key, const WCHAR* subKey, DWORD reserved, WCHAR* keyClass, DWORD options, DWORD access,
                     void* securityAttributes, HKEY* result, DWORD* disposition);

// RegQueryValueExW: type and data of a value; ERROR_MORE_DATA when *dataSize is too small
// (then *dataSize holds the size needed). A null name or "" names the default value.
LONG RegQueryValueExW(HKEY key, const WCHAR* valueName, DWORD* reserved, DWORD* type, BYTE* data, DWORD* dataSize);

// RegSetValueExW: writes a value, replacing one of the same name.
LONG RegSetValueExW(HKEY key, const WCHAR* valueName, DWORD reserved, DWORD type, const BYTE* data, DWORD dataSize);

// RegDeleteValueW: removes a value; ERROR_FILE_NOT_FOUND when there is none.
LONG RegDeleteValueW(HKEY key, const WCHAR* valueName);

// RegDeleteKeyW: removes a subkey that has no subkeys of its own.
LONG RegDeleteKeyW(HKEY key, const WCHAR* subKey);

// RegEnumValueW: name (and type) of the value at `index`; *nameLength is in characters
// without the terminator. ERROR_MORE_DATA when the name does not fit, ERROR_NO_MORE_ITEMS past the end.
LONG RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameLength, DWORD* reserved, DWORD* type, BYTE* data,
                   DWORD* dataSize);

// RegCloseKey: closes a key handle.
LONG RegCloseKey(HKEY key);

// RegDeleteTreeW: removes a subkey with everything below it; ERROR_FILE_NOT_FOUND when it is missing.
LONG RegDeleteTreeW(HKEY key, const WCHAR* subKey);

}  // namespace hf::os
