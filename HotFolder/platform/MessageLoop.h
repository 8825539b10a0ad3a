// Thread message queues, as the service's message loop uses them, and the
// message boxes that registration shows when the service manager refuses.
#pragma once

#include "platform/Types.h"

namespace hf::os {

struct POINT {
    LONG x = 0;
    LONG y = 0;
};

// The layout of the Win32 MSG on 64-bit Windows.
struct MSG {
    HWND hwnd = nullptr;
    unsigned message = 0;
    WPARAM wParam = 0;
    LPARAM lParam = 0;
    DWORD time = 0;
    POINT pt;
};

// GetMessageW: waits for the next message of the calling thread (which gets a
// queue by calling it); 0 for WM_QUIT, -1 on failure, else non-zero.
BOOL GetMessageW(MSG* message, HWND window, unsigned filterMin, unsigned filterMax);

// PeekMessageW: looks for a message without waiting; with PM_NOREMOVE it leaves it
// queued. The first call gives the calling thread its message queue.
BOOL PeekMessageW(MSG* message, HWND window, unsigned filterMin, unsigned filterMax, unsigned removeFlags);

// TranslateMessage / DispatchMessageW: the usual steps of a message loop.
BOOL TranslateMessage(const MSG* message);
LPARAM DispatchMessageW(const MSG* message);

// PostThreadMessageW: queues a message for a thread; FALSE with ERROR_INVALID_THREAD_ID
// when the thread has no message queue.
BOOL PostThreadMessageW(DWORD threadId, unsigned message, WPARAM wParam, LPARAM lParam);

// GetCurrentThreadId: the calling thread's identifier.
DWORD GetCurrentThreadId();

// MessageBoxW: shows a message box and returns the button pressed (IDOK for style MB_OK).
int MessageBoxW(HWND owner, const WCHAR* text, const WCHAR* caption, unsigned type);

}  // namespace hf::os
