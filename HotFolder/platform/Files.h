// Files, directories and their change notification, the directory listing,
// INI-file reading and the user's shell folders. CreateFileW also opens the
// client end of a named pipe (a name under \\.\pipe\); ReadFileEx, WriteFileEx
// and WriteFile work on files and pipes alike (Pipes.h adds the server side).
#pragma once

#include "platform/Types.h"

namespace hf::os {

// CreateFileW: opens or creates a file, a directory (with FILE_FLAG_BACKUP_SEMANTICS)
// or the client end of a named pipe; INVALID_HANDLE_VALUE on failure.
HANDLE CreateFileW(const WCHAR* fileName, DWORD desiredAccess, DWORD shareMode, void* securityAttributes,
                   DWORD creationDisposition, DWORD flagsAndAttributes, HANDLE templateFile);

// ReadFileEx: starts an overlapped read whose completion routine runs in a later
// alertable wait of this thread; FALSE when it cannot start.
BOOL ReadFileEx(HANDLE file, void* buffer, DWORD bytesToRead, OVERLAPPED* overlapped,
                LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine);

// WriteFileEx: starts an overlapped write, completed like ReadFileEx.
BOOL WriteFileEx(HANDLE file, const void* buffer, DWORD bytesToWrite, OVERLAPPED* overlapped,
                 LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine);

// WriteFile without an OVERLAPPED: a plain write; FALSE on failure.
BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytesToWrite, DWORD* bytesWritten, OVERLAPPED* overlapped);

// One record of a directory-change buffer, as ReadDirectoryChangesW lays it out:
// NextEntryOffset (0 on the last record), Action (1 added, 2 removed, 3 modified,
// 4 renamed from, 5 renamed to), FileNameLength in bytes, then the UTF-16 name
// without terminator, relative to the watched directory.
struct FILE_NOTIFY_INFORMATION {
    DWORD NextEntryOffset;
    DWORD Action;
    DWORD FileNameLength;
    WCHAR FileName[1];
};

// ReadDirectoryChangesW: starts one asynchronous read of change records of an open
// directory into `buffer` (DWORD-aligned); the completion routine gets the byte count
// (0 without error when changes overflowed the system's own buffer).
BOOL ReadDirectoryChangesW(HANDLE directory, void* buffer, DWORD bufferLength, BOOL watchSubtree, DWORD notifyFilter,
                           DWORD* bytesReturned, OVERLAPPED* overlapped,
                           LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine);

constexpr std::size_t kMaxPath = 260;

struct FILETIME {
    DWORD dwLowDateTime = 0;
    DWORD dwHighDateTime = 0;
};

struct WIN32_FIND_DATAW {
    DWORD dwFileAttributes = 0;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh = 0;
    DWORD nFileSizeLow = 0;
    DWORD dwReserved0 = 0;
    DWORD dwReserved1 = 0;
    WCHAR cFileName[kMaxPath] = {};
    WCHAR cAlternateFileName[14] = {};
};

// FindFirstFileW / FindNextFileW / FindClose: list a directory (a pattern such as
// C:\dir\*) or the pipes of the machine (\\.\pipe\*). INVALID_HANDLE_VALUE / FALSE
// when there is nothing (more) to list.
HANDLE FindFirstFileW(const WCHAR* fileName, WIN32_FIND_DATAW* findData);
BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* findData);
BOOL FindClose(HANDLE find);

// CreateDirectoryW: creates one directory level.
BOOL CreateDirectoryW(const WCHAR* pathName, void* securityAttributes);

// GetFileAttributesW: attributes of a file or directory; INVALID_FILE_ATTRIBUTES when missing.
DWORD GetFileAttributesW(const WCHAR* fileName);

// GetTempFileNameW: with unique number 0, creates an empty file named from the first
// three characters of the prefix, a hexadecimal number and .TMP in `pathName`, and
// returns the number (0 on failure). `tempFileName` holds at least 260 characters.
unsigned GetTempFileNameW(const WCHAR* pathName, const WCHAR* prefixString, unsigned unique, WCHAR* tempFileName);

// GetPrivateProfileStringW: reads key `keyName` of section `appName` from an INI file,
// sections and keys matched without regard to case, blanks around the value and one
// pair of enclosing quotes dropped; `defaultValue` when missing. Returns the characters
// copied (the value is cut to size - 1).
DWORD GetPrivateProfileStringW(const WCHAR* appName, const WCHAR* keyName, const WCHAR* defaultValue,
                               WCHAR* returnedString, DWORD size, const WCHAR* fileName);

// SHGetFolderPathW: the path of a shell folder (CSIDL_LOCAL_APPDATA = 0x1C) into a
// buffer of 260 characters; an HRESULT.
HRESULT SHGetFolderPathW(void* window, int folder, HANDLE token, DWORD flags, WCHAR* path);

}  // namespace hf::os
