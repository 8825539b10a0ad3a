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

// GetStdHandle: one of the process's standard handles (STD_OUTPUT_HANDLE, ...); null when
// the process has none (a service, a GUI program started without them).
HANDLE GetStdHandle(DWORD which);

using LPTHREAD_START_ROUTINE = DWORD (*)(void* parameter);

// CreateThread: starts a thread in the process; null on failure.
HANDLE CreateThread(void* securityAttributes, std::size_t stackSize, LPTHREAD_START_ROUTINE start, void* parameter,
                    DWORD creationFlags, DWORD* threadId);

// WaitForSingleObject: waits for one kernel object; WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);

// CloseHandle: closes a kernel object handle.
BOOL CloseHandle(HANDLE object);

// How a new process starts (window, standard handles); the layout of the Win32
// STARTUPINFOW on 64-bit Windows, so the win32 backend passes it straight through.
struct STARTUPINFOW {
    DWORD cb = 0;
    WCHAR* lpReserved = nullptr;
    WCHAR* lpDesktop = nullptr;
    WCHAR* lpTitle = nullptr;
    DWORD dwX = 0;
    DWORD dwY = 0;
    DWORD dwXSize = 0;
    DWORD dwYSize = 0;
    DWORD dwXCountChars = 0;
    DWORD dwYCountChars = 0;
    DWORD dwFillAttribute = 0;
    DWORD dwFlags = 0;
    WORD wShowWindow = 0;
    WORD cbReserved2 = 0;
    BYTE* lpReserved2 = nullptr;
    HANDLE hStdInput = nullptr;
    HANDLE hStdOutput = nullptr;
    HANDLE hStdError = nullptr;
};

// What CreateProcessW gives back: handles and ids of the new process and its first thread.
struct PROCESS_INFORMATION {
    HANDLE hProcess = nullptr;
    HANDLE hThread = nullptr;
    DWORD dwProcessId = 0;
    DWORD dwThreadId = 0;
};

// CreateProcessW: starts the program `applicationName` (or, when null, the one the command
// line's first token names) with `commandLine`, which the system may write into while it
// works; FALSE on failure (ERROR_FILE_NOT_FOUND for a program that does not exist).
BOOL CreateProcessW(const WCHAR* applicationName, WCHAR* commandLine, void* processAttributes, void* threadAttributes,
                    BOOL inheritHandles, DWORD creationFlags, void* environment, const WCHAR* currentDirectory,
                    STARTUPINFOW* startupInfo, PROCESS_INFORMATION* processInformation);

// TerminateProcess: ends a process at once with `exitCode`; FALSE when the handle is not a
// process or the process has already ended (ERROR_ACCESS_DENIED).
BOOL TerminateProcess(HANDLE process, unsigned exitCode);

// GetExitCodeProcess: the exit code, or STILL_ACTIVE while the process runs.
BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode);

// GetUserNameExW: the calling thread's account in the given form (NameSamCompatible:
// DOMAIN\user). On success *size is the length without terminator; when the buffer is too
// small, FALSE with ERROR_MORE_DATA and *size the capacity needed, terminator included.
BOOL GetUserNameExW(int nameFormat, WCHAR* nameBuffer, DWORD* size);

}  // namespace hf::os
