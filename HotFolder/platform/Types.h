// Portable stand-ins for the Win32 types that the hot folder core and the
// platform seam talk in. The core never sees <windows.h>; the win32 backend
// converts these to the real types at the seam, the sim backend uses them as
// they are.
//
// Only type names live here: <windows.h> defines its constants (TRUE,
// INFINITE, ERROR_*, ...) as macros, so the constants sit in Constants.h,
// which the win32 backend never includes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace hf {

using DWORD = std::uint32_t;
using LONG = std::int32_t;
using BOOL = std::int32_t;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using HRESULT = std::int32_t;
using ULONG_PTR = std::uintptr_t;
using WCHAR = char16_t;

using HANDLE = void*;
using HKEY = void*;
using SC_HANDLE = void*;
using PSID = void*;
using HLOCAL = void*;
using PSECURITY_DESCRIPTOR = void*;
using HINSTANCE = void*;

// Windows, resources and message parameters (the service's message loop and
// its registration data).
using HWND = void*;
using HRSRC = void*;
using HGLOBAL = void*;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;

// The same layout as the Win32 OVERLAPPED on 64-bit Windows, so the win32
// backend can hand the address straight to the system.
struct OVERLAPPED {
    ULONG_PTR Internal = 0;
    ULONG_PTR InternalHigh = 0;
    DWORD Offset = 0;
    DWORD OffsetHigh = 0;
    HANDLE hEvent = nullptr;
};

// The I/O completion routine (error code, bytes transferred, the OVERLAPPED of
// the finished operation). On x86-64 Windows there is a single calling
// convention, so this is the system's LPOVERLAPPED_COMPLETION_ROUTINE.
using LPOVERLAPPED_COMPLETION_ROUTINE = void (*)(DWORD errorCode, DWORD bytesTransferred, OVERLAPPED* overlapped);

}  // namespace hf
