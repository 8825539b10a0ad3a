#include "platform/sim/SimWorld.h"

#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/sim/SimMemory.h"

namespace hf::sim {

void FaultPlan::Fail(std::string const& call, DWORD error, int times)
{
    auto& queue = faults_[call];
    for (int i = 0; i < times; ++i) {
        queue.push_back(error);
    }
}

bool FaultPlan::Take(char const* call, DWORD& error)
{
    auto it = faults_.find(call);
    if (it == faults_.end() || it->second.empty()) {
        return false;
    }
    error = it->second.front();
    it->second.pop_front();
    return true;
}

World& World::Get()
{
    static World world;
    return world;
}

void World::Reset()
{
    bootTicks_ = 0;
    elapsed_ = 0;
    schedule_.clear();
    apcs_.clear();
    handles_.clear();
    nextHandle_ = 0x1000;
    exhaustedWaits_ = 0;
    timedOutWaits_ = 0;
    faults.Clear();
    eventLog = EventLog{};
    registry.Clear();
    services.Clear();
    processes = Processes{};
    accounts.Clear();
    files.Clear();
    pipes.Clear();
    com.Clear();
    ResetLocalMemory();
    os::SetLastError(0);
}

void World::SetTicks(DWORD ticks)
{
    bootTicks_ = static_cast<std::uint64_t>(ticks) + (std::uint64_t{1} << 32) - (elapsed_ & 0xFFFFFFFFu);
}

void World::After(DWORD delay, std::function<void()> action)
{
    schedule_.emplace(elapsed_ + delay, std::move(action));
}

void World::RunDue()
{
    while (!schedule_.empty() && schedule_.begin()->first <= elapsed_) {
        auto action = std::move(schedule_.begin()->second);
        schedule_.erase(schedule_.begin());
        action();
    }
}

void World::Advance(DWORD milliseconds)
{
    std::uint64_t const target = elapsed_ + milliseconds;
    RunDue();
    while (!schedule_.empty() && schedule_.begin()->first <= target) {
        elapsed_ = schedule_.begin()->first;
        RunDue();
    }
    elapsed_ = target;
}

void World::QueueApc(std::function<void()> apc)
{
    apcs_.push_back(std::move(apc));
}

void World::RunApcs()
{
    while (!apcs_.empty()) {
        auto apc = std::move(apcs_.front());
        apcs_.pop_front();
        apc();
    }
}

DWORD World::Wait(std::function<bool()> const& ready, DWORD timeout, bool alertable)
{
    std::uint64_t const deadline = elapsed_ + timeout;
    for (;;) {
        RunDue();
        if (ready()) {
            return WAIT_OBJECT_0;
        }
        if (alertable && !apcs_.empty()) {
            RunApcs();
            return WAIT_IO_COMPLETION;
        }
        bool const timed = timeout != INFINITE;
        if (timed && (schedule_.empty() || schedule_.begin()->first > deadline)) {
            elapsed_ = deadline;
            if (timeout != 0) {
                ++timedOutWaits_;
            }
            return WAIT_TIMEOUT;
        }
        if (schedule_.empty()) {
            ++exhaustedWaits_;
            os::SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        elapsed_ = std::max(elapsed_, schedule_.begin()->first);
    }
}

HANDLE World::AddHandle(std::shared_ptr<Object> object)
{
    std::uintptr_t const value = nextHandle_;
    nextHandle_ += 4;
    ++object->handleCount;
    handles_.emplace(value, std::move(object));
    return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<Object> World::Lookup(HANDLE handle) const
{
    auto it = handles_.find(reinterpret_cast<std::uintptr_t>(handle));
    return it == handles_.end() ? nullptr : it->second;
}

void World::EndProcess()
{
    while (!handles_.empty()) {
        CloseHandle(reinterpret_cast<HANDLE>(handles_.begin()->first));
    }
    // Completions the closes queued had nobody left to run them.
    apcs_.clear();
    processes.messageQueues.clear();
    processes.threadStarts.clear();
    processes.currentThreadId = kMainThreadId;
    processes.standardOutput = nullptr;
}

bool World::CloseHandle(HANDLE handle)
{
    auto it = handles_.find(reinterpret_cast<std::uintptr_t>(handle));
    if (it == handles_.end()) {
        return false;
    }
    std::shared_ptr<Object> object = std::move(it->second);
    handles_.erase(it);
    if (--object->handleCount == 0) {
        object->OnClose();
    }
    return true;
}

bool Injected(char const* call, DWORD& error)
{
    if (!World::Get().faults.Take(call, error)) {
        return false;
    }
    os::SetLastError(error);
    return true;
}

}  // namespace hf::sim
