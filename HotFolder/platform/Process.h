// The process itself (command line, module path, user), threads, child
// processes and the wait on one kernel object.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// GetCommandLineW: the raw command line the process was started with, program path included.
const WCHAR* GetCommandLineW();

// CommandLineToArgvW: splits a command line by the Windows rules; the array is
// freed with LocalFree. Null on failure.
WCHAR** CommandLineToArgvW(const WCHAR* commandLine, int* argc);

// GetModuleFileNameW: full path of a module (null: the executable). Returns the length
// copied; when the buffer is too small the path is cut, terminated, and `size` is returned.
DWORD GetModuleFileNameW(HINSTANCE module, WCHAR* buffer, DWORD size);

// GetModuleHandleW: a loaded module's handle (null: the executable).
HINSTANCE GetModuleHandleW(const WCHAR* moduleName);

using LPTHREAD_START_ROUTINE = DWORD (*)(void* parameter);

// CreateThread: starts a thread in the process; null on failure.
HANDLE CreateThread(void* securityAttributes, std::size_t stackSize, LPTHREAD_START_ROUTINE start, void* parameter,
                    DWORD creationFlags, DWORD* threadId);

// WaitForSingleObject: waits for one kernel object; WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);

// CloseHandle: closes a kernel object handle.
BOOL CloseHandle(HANDLE object);

}  // namespace hf::os
