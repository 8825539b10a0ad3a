// The one command queue of the process: any thread posts, the supervisor
// alone takes. A counting semaphore always counts the queued commands, so
// the supervisor blocks on it in an ordinary wait and, once the wait has
// taken one count, is sure to find a command.
#pragma once

#include "platform/Sync.h"
#include "platform/Types.h"
#include "supervisor/Command.h"

#include <deque>

namespace hf {

class CommandQueue {
public:
    CommandQueue();
    ~CommandQueue();
    CommandQueue(const CommandQueue&) = delete;
    CommandQueue& operator=(const CommandQueue&) = delete;

    // Appends a copy and raises the semaphore while still holding the lock, so
    // the consumer never wakes to an empty queue.
    void Post(Command const& command);

    // Removes the front command. The caller must first have taken one count of
    // Semaphore() by a successful wait; Take neither waits nor checks.
    Command Take();

    HANDLE Semaphore() const { return semaphore_; }

private:
    std::deque<Command> items_;
    os::CriticalSection lock_;
    HANDLE semaphore_;
};

// The process-wide queue, built during static initialisation.
CommandQueue& TheCommandQueue();

// Builds the process-wide queue afresh. A simulated test run is a fresh
// process each time; a real process never calls it.
void RecreateCommandQueue();

}  // namespace hf
