#include <windows.h>
// After windows.h, which it builds on.
#include <shellapi.h>

#include "platform/Process.h"

namespace hf::os {

namespace {

// The seam's thread procedure returns a 32-bit unsigned int where the system's
// returns a 32-bit unsigned long; x86-64 Windows has a single calling
// convention, so only the spelling differs. Going through a generic function
// pointer says so to the compiler, which otherwise warns about the cast.
using GenericFunction = void (*)();

::LPTHREAD_START_ROUTINE ThreadRoutine(LPTHREAD_START_ROUTINE start)
{
    return reinterpret_cast<::LPTHREAD_START_ROUTINE>(reinterpret_cast<GenericFunction>(start));
}

}  // namespace

const WCHAR* GetCommandLineW()
{
    return reinterpret_cast<const WCHAR*>(::GetCommandLineW());
}

WCHAR** CommandLineToArgvW(const WCHAR* commandLine, int* argc)
{
    return reinterpret_cast<WCHAR**>(::CommandLineToArgvW(reinterpret_cast<LPCWSTR>(commandLine), argc));
}

DWORD GetModuleFileNameW(HINSTANCE module, WCHAR* buffer, DWORD size)
{
    return ::GetModuleFileNameW(static_cast<HMODULE>(module), reinterpret_cast<LPWSTR>(buffer), size);
}

HINSTANCE GetModuleHandleW(const WCHAR* moduleName)
{
    return ::GetModuleHandleW(reinterpret_cast<LPCWSTR>(moduleName));
}

HANDLE GetStdHandle(DWORD which)
{
    HANDLE const handle = ::GetStdHandle(which);
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

HANDLE CreateThread(void* securityAttributes, std::size_t stackSize, LPTHREAD_START_ROUTINE start, void* parameter,
                    DWORD creationFlags, DWORD* threadId)
{
    ::DWORD id = 0;
    HANDLE const thread = ::CreateThread(static_cast<LPSECURITY_ATTRIBUTES>(securityAttributes), stackSize,
                                         ThreadRoutine(start), parameter, creationFlags, &id);
    if (threadId) {
        *threadId = id;
    }
    return thread;
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds)
{
    return ::WaitForSingleObject(object, milliseconds);
}

BOOL CloseHandle(HANDLE object)
{
    return ::CloseHandle(object);
}

}  // namespace hf::os
