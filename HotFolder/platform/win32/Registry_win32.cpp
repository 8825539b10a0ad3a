#include <windows.h>

#include "platform/Registry.h"

namespace hf::os {

namespace {

::HKEY Key(HKEY key)
{
    return static_cast<::HKEY>(key);
}

LPCWSTR Text(const WCHAR* text)
{
    return reinterpret_cast<LPCWSTR>(text);
}

}  // namespace

LONG RegOpenKeyExW(HKEY key, const WCHAR* subKey, DWORD options, DWORD access, HKEY* result)
{
    ::HKEY opened = nullptr;
    LONG const status = ::RegOpenKeyExW(Key(key), Text(subKey), options, access, &opened);
    *result = opened;
    return status;
}

LONG RegCreateKeyExW(HKEY key, const WCHAR* subKey, DWORD reserved, WCHAR* keyClass, DWORD options, DWORD access,
                     void* securityAttributes, HKEY* result, DWORD* disposition)
{
    ::HKEY opened = nullptr;
    ::DWORD created = 0;
    LONG const status =
        ::RegCreateKeyExW(Key(key), Text(subKey), reserved, reinterpret_cast<LPWSTR>(keyClass), options, access,
                          static_cast<LPSECURITY_ATTRIBUTES>(securityAttributes), &opened, &created);
    *result = opened;
    if (disposition) {
        *disposition = created;
    }
    return status;
}

LONG RegQueryValueExW(HKEY key, const WCHAR* valueName, DWORD* reserved, DWORD* type, BYTE* data, DWORD* dataSize)
{
    ::DWORD valueType = 0;
    ::DWORD size = dataSize ? *dataSize : 0;
    LONG const status = ::RegQueryValueExW(Key(key), Text(valueName), reinterpret_cast<LPDWORD>(reserved), &valueType,
                                           data, dataSize ? &size : nullptr);
    if (type) {
        *type = valueType;
    }
    if (dataSize) {
        *dataSize = size;
    }
    return status;
}

LONG RegSetValueExW(HKEY key, const WCHAR* valueName, DWORD reserved, DWORD type, const BYTE* data, DWORD dataSize)
{
    return ::RegSetValueExW(Key(key), Text(valueName), reserved, type, data, dataSize);
}

LONG RegDeleteValueW(HKEY key, const WCHAR* valueName)
{
    return ::RegDeleteValueW(Key(key), Text(valueName));
}

LONG RegDeleteKeyW(HKEY key, const WCHAR* subKey)
{
    return ::RegDeleteKeyW(Key(key), Text(subKey));
}

LONG RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameLength, DWORD* reserved, DWORD* type, BYTE* data,
                   DWORD* dataSize)
{
    ::DWORD length = *nameLength;
    ::DWORD valueType = 0;
    ::DWORD size = dataSize ? *dataSize : 0;
    LONG const status =
        ::RegEnumValueW(Key(key), index, reinterpret_cast<LPWSTR>(name), &length, reinterpret_cast<LPDWORD>(reserved),
                        &valueType, data, dataSize ? &size : nullptr);
    *nameLength = length;
    if (type) {
        *type = valueType;
    }
    if (dataSize) {
        *dataSize = size;
    }
    return status;
}

LONG RegCloseKey(HKEY key)
{
    return ::RegCloseKey(Key(key));
}

LONG RegDeleteTreeW(HKEY key, const WCHAR* subKey)
{
    return ::RegDeleteTreeW(Key(key), Text(subKey));
}

}  // namespace hf::os
