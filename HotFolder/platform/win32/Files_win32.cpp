// Directory change reads, listings, INI files and shell folders, forwarded to
// Windows (CreateFileW and the reads and writes are in Io_win32.cpp).
#include <windows.h>

#include <shlobj.h>

#include "platform/Files.h"

#include <cstddef>

namespace hf::os {

static_assert(sizeof(FILE_NOTIFY_INFORMATION) == sizeof(::FILE_NOTIFY_INFORMATION),
              "FILE_NOTIFY_INFORMATION has the Windows layout");
static_assert(offsetof(FILE_NOTIFY_INFORMATION, FileName) == offsetof(::FILE_NOTIFY_INFORMATION, FileName),
              "FILE_NOTIFY_INFORMATION has the Windows layout");
static_assert(sizeof(WIN32_FIND_DATAW) == sizeof(::WIN32_FIND_DATAW), "WIN32_FIND_DATAW has the Windows layout");
static_assert(offsetof(WIN32_FIND_DATAW, cFileName) == offsetof(::WIN32_FIND_DATAW, cFileName),
              "WIN32_FIND_DATAW has the Windows layout");

namespace {

// The seam's completion routine has the system's signature on x86-64 Windows;
// only the spelling of the OVERLAPPED type differs.
using GenericFunction = void (*)();

::LPOVERLAPPED_COMPLETION_ROUTINE CompletionRoutine(LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    return reinterpret_cast<::LPOVERLAPPED_COMPLETION_ROUTINE>(reinterpret_cast<GenericFunction>(routine));
}

LPCWSTR Wide(const WCHAR* text)
{
    return reinterpret_cast<LPCWSTR>(text);
}

}  // namespace

BOOL ReadDirectoryChangesW(HANDLE directory, void* buffer, DWORD bufferLength, BOOL watchSubtree, DWORD notifyFilter,
                           DWORD* bytesReturned, OVERLAPPED* overlapped,
                           LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)
{
    ::DWORD returned = 0;
    BOOL const ok =
        ::ReadDirectoryChangesW(directory, buffer, bufferLength, watchSubtree, notifyFilter, &returned,
                                reinterpret_cast<::LPOVERLAPPED>(overlapped), CompletionRoutine(completionRoutine));
    if (bytesReturned) {
        *bytesReturned = returned;
    }
    return ok;
}

HANDLE FindFirstFileW(const WCHAR* fileName, WIN32_FIND_DATAW* findData)
{
    return ::FindFirstFileW(Wide(fileName), reinterpret_cast<::WIN32_FIND_DATAW*>(findData));
}

BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* findData)
{
    return ::FindNextFileW(find, reinterpret_cast<::WIN32_FIND_DATAW*>(findData));
}

BOOL FindClose(HANDLE find)
{
    return ::FindClose(find);
}

BOOL CreateDirectoryW(const WCHAR* pathName, void* securityAttributes)
{
    return ::CreateDirectoryW(Wide(pathName), static_cast<LPSECURITY_ATTRIBUTES>(securityAttributes));
}

DWORD GetFileAttributesW(const WCHAR* fileName)
{
    return ::GetFileAttributesW(Wide(fileName));
}

unsigned GetTempFileNameW(const WCHAR* pathName, const WCHAR* prefixString, unsigned unique, WCHAR* tempFileName)
{
    return ::GetTempFileNameW(Wide(pathName), Wide(prefixString), unique, reinterpret_cast<LPWSTR>(tempFileName));
}

DWORD GetPrivateProfileStringW(const WCHAR* appName, const WCHAR* keyName, const WCHAR* defaultValue,
                               WCHAR* returnedString, DWORD size, const WCHAR* fileName)
{
    return ::GetPrivateProfileStringW(Wide(appName), Wide(keyName), Wide(defaultValue),
                                      reinterpret_cast<LPWSTR>(returnedString), size, Wide(fileName));
}

HRESULT SHGetFolderPathW(void* window, int folder, HANDLE token, DWORD flags, WCHAR* path)
{
    return ::SHGetFolderPathW(static_cast<::HWND>(window), folder, token, flags, reinterpret_cast<LPWSTR>(path));
}

}  // namespace hf::os
