#include <windows.h>

#include "platform/MessageLoop.h"

#include <cstddef>

namespace hf::os {

static_assert(sizeof(MSG) == sizeof(::MSG), "MSG must have the system's layout");
static_assert(offsetof(MSG, message) == offsetof(::MSG, message));
static_assert(offsetof(MSG, wParam) == offsetof(::MSG, wParam));
static_assert(offsetof(MSG, lParam) == offsetof(::MSG, lParam));
static_assert(offsetof(MSG, time) == offsetof(::MSG, time));
static_assert(offsetof(MSG, pt) == offsetof(::MSG, pt));

BOOL GetMessageW(MSG* message, HWND window, unsigned filterMin, unsigned filterMax)
{
    return ::GetMessageW(reinterpret_cast<::MSG*>(message), static_cast<::HWND>(window), filterMin, filterMax);
}

BOOL PeekMessageW(MSG* message, HWND window, unsigned filterMin, unsigned filterMax, unsigned removeFlags)
{
    return ::PeekMessageW(reinterpret_cast<::MSG*>(message), static_cast<::HWND>(window), filterMin, filterMax,
                          removeFlags);
}

BOOL TranslateMessage(const MSG* message)
{
    return ::TranslateMessage(reinterpret_cast<const ::MSG*>(message));
}

LPARAM DispatchMessageW(const MSG* message)
{
    return ::DispatchMessageW(reinterpret_cast<const ::MSG*>(message));
}

BOOL PostThreadMessageW(DWORD threadId, unsigned message, WPARAM wParam, LPARAM lParam)
{
    return ::PostThreadMessageW(threadId, message, wParam, lParam);
}

DWORD GetCurrentThreadId()
{
    return ::GetCurrentThreadId();
}

int MessageBoxW(HWND owner, const WCHAR* text, const WCHAR* caption, unsigned type)
{
    return ::MessageBoxW(static_cast<::HWND>(owner), reinterpret_cast<LPCWSTR>(text),
                         reinterpret_cast<LPCWSTR>(caption), type);
}

}  // namespace hf::os
