#include <windows.h>

#include <cstddef>

#include "platform/Files.h"

namespace hf::os {

static_assert(sizeof(OVERLAPPED) == sizeof(::OVERLAPPED), "OVERLAPPED has the Windows layout");
static_assert(offsetof(OVERLAPPED, hEvent) == offsetof(::OVERLAPPED, hEvent), "OVERLAPPED has the Windows layout");

namespace {

// The seam's completion routine takes the seam's OVERLAPPED, which has the
// system's layout; x86-64 Windows has a single calling convention, so only
// the spelling differs. Going through a generic function pointer says so to
// the compiler, which otherwise warns about the cast.
using GenericFunction = void (*)();

::LPOVERLAPPED_COMPLETION_ROUTINE CompletionRoutine(LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    return reinterpret_cast<::LPOVERLAPPED_COMPLETION_ROUTINE>(reinterpret_cast<GenericFunction>(routine));
}

}  // namespace

HANDLE CreateFileW(const WCHAR* fileName, DWORD desiredAccess, DWORD shareMode, void* securityAttributes,
                   DWORD creationDisposition, DWORD flagsAndAttributes, HANDLE templateFile)
{
    return ::CreateFileW(reinterpret_cast<LPCWSTR>(fileName), desiredAccess, shareMode,
                         static_cast<LPSECURITY_ATTRIBUTES>(securityAttributes), creationDisposition,
                         flagsAndAttributes, templateFile);
}

BOOL ReadFileEx(HANDLE file, void* buffer, DWORD bytesToRead, OVERLAPPED* overlapped,
                LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)
{
    return ::ReadFileEx(file, buffer, bytesToRead, reinterpret_cast<::LPOVERLAPPED>(overlapped),
                        CompletionRoutine(completionRoutine));
}

BOOL WriteFileEx(HANDLE file, const void* buffer, DWORD bytesToWrite, OVERLAPPED* overlapped,
                 LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)
{
    return ::WriteFileEx(file, buffer, bytesToWrite, reinterpret_cast<::LPOVERLAPPED>(overlapped),
                         CompletionRoutine(completionRoutine));
}

BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytesToWrite, DWORD* bytesWritten, OVERLAPPED* overlapped)
{
    ::DWORD written = 0;
    BOOL const ok = ::WriteFile(file, buffer, bytesToWrite, &written, reinterpret_cast<::LPOVERLAPPED>(overlapped));
    if (bytesWritten) {
        *bytesWritten = written;
    }
    return ok;
}

}  // namespace hf::os
