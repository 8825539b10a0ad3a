#include "supervisor/SupervisorThread.h"

#include "platform/Constants.h"
#include "platform/Sync.h"
#include "supervisor/CommandQueue.h"

namespace hf {

// Until the watcher links and launches exist, the supervisor only serves the
// queue: it consumes commands in order and ends at CMD_STOP or a failed wait.
DWORD SupervisorThread(void* /*parameter*/)
{
    CommandQueue& queue = TheCommandQueue();
    for (;;) {
        HANDLE semaphore = queue.Semaphore();
        if (os::WaitForMultipleObjects(1, &semaphore, FALSE, INFINITE) != WAIT_OBJECT_0) {
            return 0;
        }
        if (queue.Take().code == CMD_STOP) {
            return 0;
        }
    }
}

}  // namespace hf
