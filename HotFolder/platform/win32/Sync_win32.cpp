#include <windows.h>

#include "platform/Sync.h"

#include <cstddef>

namespace hf::os {

// Overlapped operations hand the seam's OVERLAPPED straight to the system, and
// the completion routines that run inside the alertable waits below get it
// back: it must have the system's layout exactly.
static_assert(sizeof(OVERLAPPED) == sizeof(::OVERLAPPED), "OVERLAPPED must have the system's layout");
static_assert(offsetof(OVERLAPPED, Internal) == offsetof(::OVERLAPPED, Internal));
static_assert(offsetof(OVERLAPPED, InternalHigh) == offsetof(::OVERLAPPED, InternalHigh));
static_assert(offsetof(OVERLAPPED, Offset) == offsetof(::OVERLAPPED, Offset));
static_assert(offsetof(OVERLAPPED, OffsetHigh) == offsetof(::OVERLAPPED, OffsetHigh));
static_assert(offsetof(OVERLAPPED, hEvent) == offsetof(::OVERLAPPED, hEvent));
static_assert(sizeof(HANDLE) == sizeof(::HANDLE) && sizeof(DWORD) == sizeof(::DWORD));

HANDLE CreateEventW(void* securityAttributes, BOOL manualReset, BOOL initialState, const WCHAR* name)
{
    return ::CreateEventW(static_cast<LPSECURITY_ATTRIBUTES>(securityAttributes), manualReset, initialState,
                          reinterpret_cast<LPCWSTR>(name));
}

BOOL SetEvent(HANDLE event)
{
    return ::SetEvent(event);
}

BOOL ResetEvent(HANDLE event)
{
    return ::ResetEvent(event);
}

HANDLE CreateSemaphoreW(void* securityAttributes, LONG initialCount, LONG maximumCount, const WCHAR* name)
{
    return ::CreateSemaphoreW(static_cast<LPSECURITY_ATTRIBUTES>(securityAttributes), initialCount, maximumCount,
                              reinterpret_cast<LPCWSTR>(name));
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount)
{
    ::LONG previous = 0;
    BOOL const released = ::ReleaseSemaphore(semaphore, releaseCount, &previous);
    if (released && previousCount) {
        *previousCount = previous;
    }
    return released;
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds)
{
    return ::WaitForMultipleObjects(count, handles, waitAll, milliseconds);
}

DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds, BOOL alertable)
{
    return ::WaitForMultipleObjectsEx(count, handles, waitAll, milliseconds, alertable);
}

struct CriticalSection::Impl {
    CRITICAL_SECTION section;
};

CriticalSection::CriticalSection() : impl_(std::make_unique<Impl>())
{
    ::InitializeCriticalSection(&impl_->section);
}

CriticalSection::~CriticalSection()
{
    ::DeleteCriticalSection(&impl_->section);
}

void CriticalSection::Enter()
{
    ::EnterCriticalSection(&impl_->section);
}

void CriticalSection::Leave()
{
    ::LeaveCriticalSection(&impl_->section);
}

}  // namespace hf::os
