// The simulated Windows that the sim backend of the platform seam runs on.
// Everything is deterministic: time is a virtual tick counter that moves only
// when a test advances it or a wait sleeps; completion routines run only inside
// an alertable wait, and scripted peers act only at their scheduled time.
#pragma once

#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Types.h"
#include "platform/sim/SimAccounts.h"
#include "platform/sim/SimCom.h"
#include "platform/sim/SimEventLog.h"
#include "platform/sim/SimFileSystem.h"
#include "platform/sim/SimPipes.h"
#include "platform/sim/SimProcess.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimServices.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace hf::sim {

// A kernel object behind a simulated HANDLE. Objects that can be waited on
// override IsSignaled; Consume is called when a wait is satisfied by the
// object (auto-reset events, semaphores).
class Object {
public:
    virtual ~Object() = default;
    virtual bool IsWaitable() const { return false; }
    virtual bool IsSignaled() const { return false; }
    virtual void Consume() {}
    // Called when the last handle to the object is closed.
    virtual void OnClose() {}

    int handleCount = 0;
};

// An object that the read and write calls work on (files, directories, pipe
// ends). Each override starts the operation as Windows would: the Ex forms
// queue their completion routine with World::QueueApc (or fail at once,
// returning FALSE with the last error set).
class IoObject : public Object {
public:
    virtual BOOL ReadEx(void*, DWORD, OVERLAPPED*, LPOVERLAPPED_COMPLETION_ROUTINE) { return InvalidFunction(); }
    virtual BOOL WriteEx(const void*, DWORD, OVERLAPPED*, LPOVERLAPPED_COMPLETION_ROUTINE) { return InvalidFunction(); }
    virtual BOOL Write(const void*, DWORD, DWORD*) { return InvalidFunction(); }

private:
    static BOOL InvalidFunction()
    {
        os::SetLastError(ERROR_INVALID_FUNCTION);
        return FALSE;
    }
};

// Calls that a test makes fail: the next `times` calls of `call` (the Win32
// function's name, e.g. "CreateFileW") fail with `error` instead of running.
class FaultPlan {
public:
    void Fail(std::string const& call, DWORD error, int times = 1);
    // True, with the error to report, when the next call of `call` is to fail.
    bool Take(char const* call, DWORD& error);
    void Clear() { faults_.clear(); }

private:
    std::map<std::string, std::deque<DWORD>> faults_;
};

class World {
public:
    static World& Get();  // the one simulated machine, reset by every test
    void Reset();

    // --- time -----------------------------------------------------------------------
    // GetTickCount's value now. Starts at `bootTicks` (set it near 2^32 to test the wrap).
    DWORD Ticks() const { return static_cast<DWORD>(bootTicks_ + elapsed_); }
    void SetTicks(DWORD ticks);
    // Moves time forward, running every scheduled action whose time comes, in order.
    void Advance(DWORD milliseconds);
    // Runs `action` when the virtual clock reaches Ticks() + delay (0: at the next
    // chance: the next wait or Advance).
    void After(DWORD delay, std::function<void()> action);
    void RunDue();

    // --- asynchronous procedure calls: they run in the thread's next alertable wait ---
    void QueueApc(std::function<void()> apc);
    bool HasApcs() const { return !apcs_.empty(); }
    void RunApcs();

    // The heart of every simulated wait: returns WAIT_OBJECT_0 once `ready()` holds,
    // WAIT_IO_COMPLETION after running APCs (alertable waits only), WAIT_TIMEOUT
    // once `timeout` ms of virtual time pass. While waiting, virtual time jumps to
    // the next scheduled action. A wait that nothing could ever end (no APC, nothing
    // scheduled, INFINITE) means the test's script has run out: it fails with
    // ERROR_INVALID_HANDLE and WAIT_FAILED, which ends the waiting loop.
    DWORD Wait(std::function<bool()> const& ready, DWORD timeout, bool alertable);
    // The waits that ran out of script, and those that a non-zero time-out ended
    // (how often a loop woke up by the clock rather than for an event).
    int ExhaustedWaits() const { return exhaustedWaits_; }
    int TimedOutWaits() const { return timedOutWaits_; }

    // --- kernel objects --------------------------------------------------------------
    HANDLE AddHandle(std::shared_ptr<Object> object);
    std::shared_ptr<Object> Lookup(HANDLE handle) const;
    template <typename T>
    std::shared_ptr<T> LookupAs(HANDLE handle) const
    {
        return std::dynamic_pointer_cast<T>(Lookup(handle));
    }
    bool CloseHandle(HANDLE handle);  // false when it was not open
    std::size_t OpenHandleCount() const { return handles_.size(); }
    // What the end of the simulated process does: its queued completions are
    // dropped and every handle it holds is closed, so a later run starts as a
    // new process would (pipe instances gone, files closed).
    void EndProcess();

    // --- facilities ------------------------------------------------------------------
    FaultPlan faults;
    EventLog eventLog;
    Registry registry;
    ServiceManager services;
    Processes processes;
    Accounts accounts;
    FileSystem files;
    Pipes pipes;
    Com com;

private:
    World() = default;

    std::uint64_t bootTicks_ = 0;
    std::uint64_t elapsed_ = 0;
    // Actions by due time; those due at the same time run in the order queued.
    std::multimap<std::uint64_t, std::function<void()>> schedule_;
    std::deque<std::function<void()>> apcs_;
    std::map<std::uintptr_t, std::shared_ptr<Object>> handles_;
    std::uintptr_t nextHandle_ = 0x1000;
    int exhaustedWaits_ = 0;
    int timedOutWaits_ = 0;
};

inline World& TheWorld()
{
    return World::Get();
}

// The sim backend's entry test for fault injection: true (and the last error set)
// when the test has made this call fail.
bool Injected(char const* call, DWORD& error);

}  // namespace hf::sim
