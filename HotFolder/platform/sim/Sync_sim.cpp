// Kernel objects to wait on, the waits, the clock and the last error.
#include "platform/Clock.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Sync.h"
#include "platform/sim/SimWorld.h"

#include <mutex>
#include <vector>

namespace hf::os {

namespace {

thread_local DWORD lastError = 0;

class Event : public sim::Object {
public:
    Event(bool manualReset, bool signaled) : manualReset(manualReset), signaled(signaled) {}
    bool IsWaitable() const override { return true; }
    bool IsSignaled() const override { return signaled; }
    void Consume() override
    {
        if (!manualReset) {
            signaled = false;
        }
    }
    bool manualReset;
    bool signaled;
};

class Semaphore : public sim::Object {
public:
    Semaphore(LONG count, LONG maximum) : count(count), maximum(maximum) {}
    bool IsWaitable() const override { return true; }
    bool IsSignaled() const override { return count > 0; }
    void Consume() override { --count; }
    LONG count;
    LONG maximum;
};

}  // namespace

DWORD GetLastError()
{
    return lastError;
}

void SetLastError(DWORD errorCode)
{
    lastError = errorCode;
}

DWORD GetTickCount()
{
    return sim::TheWorld().Ticks();
}

void Sleep(DWORD milliseconds)
{
    sim::TheWorld().Advance(milliseconds);
}

HANDLE CreateEventW(void* /*securityAttributes*/, BOOL manualReset, BOOL initialState, const WCHAR* /*name*/)
{
    return sim::TheWorld().AddHandle(std::make_shared<Event>(manualReset != 0, initialState != 0));
}

BOOL SetEvent(HANDLE event)
{
    auto target = sim::TheWorld().LookupAs<Event>(event);
    if (!target) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    target->signaled = true;
    return 1;
}

HANDLE CreateSemaphoreW(void* /*securityAttributes*/, LONG initialCount, LONG maximumCount, const WCHAR* /*name*/)
{
    if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return sim::TheWorld().AddHandle(std::make_shared<Semaphore>(initialCount, maximumCount));
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount)
{
    auto target = sim::TheWorld().LookupAs<Semaphore>(semaphore);
    if (!target) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    if (releaseCount <= 0 || releaseCount > target->maximum - target->count) {
        SetLastError(ERROR_TOO_MANY_POSTS);
        return 0;
    }
    if (previousCount) {
        *previousCount = target->count;
    }
    target->count += releaseCount;
    return 1;
}

DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds, BOOL alertable)
{
    auto& world = sim::TheWorld();
    if (count == 0 || count > 64 || waitAll) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    std::vector<std::shared_ptr<sim::Object>> objects;
    for (DWORD i = 0; i < count; ++i) {
        auto object = world.Lookup(handles[i]);
        if (!object || !object->IsWaitable()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        objects.push_back(std::move(object));
    }
    DWORD signaled = 0;
    auto ready = [&] {
        for (DWORD i = 0; i < count; ++i) {
            if (objects[i]->IsSignaled()) {
                signaled = i;
                return true;
            }
        }
        return false;
    };
    DWORD const result = world.Wait(ready, milliseconds, alertable != 0);
    if (result == WAIT_OBJECT_0) {
        objects[signaled]->Consume();
        return WAIT_OBJECT_0 + signaled;
    }
    return result;
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds)
{
    return WaitForMultipleObjectsEx(count, handles, waitAll, milliseconds, 0);
}

struct CriticalSection::Impl {
    std::recursive_mutex mutex;
};

CriticalSection::CriticalSection() : impl_(std::make_unique<Impl>())
{
}
CriticalSection::~CriticalSection() = default;

void CriticalSection::Enter()
{
    impl_->mutex.lock();
}

void CriticalSection::Leave()
{
    impl_->mutex.unlock();
}

}  // namespace hf::os
