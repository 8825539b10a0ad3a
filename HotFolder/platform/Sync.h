// Events, semaphores, critical sections and the multiple-object wait, alertable
// or not. In an alertable wait queued completion routines run and the wait
// returns WAIT_IO_COMPLETION.
#pragma once

#include "platform/Types.h"

#include <memory>

namespace hf::os {

// CreateEventW: a manual- or auto-reset event; null on failure.
HANDLE CreateEventW(void* securityAttributes, BOOL manualReset, BOOL initialState, const WCHAR* name);

// SetEvent / ResetEvent: signal or clear an event.
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

// CreateSemaphoreW: a counting semaphore; null on failure.
HANDLE CreateSemaphoreW(void* securityAttributes, LONG initialCount, LONG maximumCount, const WCHAR* name);

// ReleaseSemaphore: raises the count by `releaseCount`; the previous count goes to *previousCount.
BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount);

// WaitForMultipleObjects: WAIT_OBJECT_0 + i for the first signalled object (waitAll FALSE),
// WAIT_TIMEOUT, or WAIT_FAILED.
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);

// WaitForMultipleObjectsEx: as above; when `alertable`, queued completion routines run
// inside the wait and it returns WAIT_IO_COMPLETION.
DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds, BOOL alertable);

// A CRITICAL_SECTION: InitializeCriticalSection at construction, DeleteCriticalSection
// at destruction, EnterCriticalSection / LeaveCriticalSection in between.
class CriticalSection {
public:
    CriticalSection();
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter();
    void Leave();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace hf::os
