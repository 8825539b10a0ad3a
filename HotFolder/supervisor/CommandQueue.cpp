#include "supervisor/CommandQueue.h"

#include "platform/Process.h"

#include <memory>

namespace hf {

namespace {
constexpr LONG kUnlimitedCount = 0x7FFFFFFF;
}

// Neither creation result is checked: a queue without a semaphore never wakes
// its consumer, which then ends on its failed wait.
CommandQueue::CommandQueue() : semaphore_(os::CreateSemaphoreW(nullptr, 0, kUnlimitedCount, nullptr))
{
}

CommandQueue::~CommandQueue()
{
    if (semaphore_ != nullptr) {
        os::CloseHandle(semaphore_);
    }
}

void CommandQueue::Post(Command const& command)
{
    lock_.Enter();
    items_.push_back(command);
    LONG previous = 0;
    os::ReleaseSemaphore(semaphore_, 1, &previous);
    lock_.Leave();
}

Command CommandQueue::Take()
{
    lock_.Enter();
    Command front = items_.front();
    items_.pop_front();
    lock_.Leave();
    return front;
}

namespace {

// Built during static initialisation, before the entry runs, so every thread
// that posts finds the same queue without racing to create it.
std::unique_ptr<CommandQueue> processQueue = std::make_unique<CommandQueue>();

}  // namespace

CommandQueue& TheCommandQueue()
{
    return *processQueue;
}

void RecreateCommandQueue()
{
    // The old queue goes first, so it cannot close a handle value that the new
    // one has just been given.
    processQueue.reset();
    processQueue = std::make_unique<CommandQueue>();
}

}  // namespace hf
