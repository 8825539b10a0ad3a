#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/MessageLoop.h"
#include "platform/sim/SimWorld.h"

namespace hf::os {

// While the thread's queue is empty, scheduled actions run (a test's control
// request, say); when nothing is left to run, the threads that have not
// started yet get their turn, as they would while this thread blocks. A
// queue that nothing could ever fill means the test's script has run out:
// the call fails.
BOOL GetMessageW(MSG* message, HWND /*window*/, unsigned /*filterMin*/, unsigned /*filterMax*/)
{
    auto& world = sim::TheWorld();
    DWORD const thread = world.processes.currentThreadId;
    auto& queue = world.processes.messageQueues[thread];
    while (world.Wait([&] { return !queue.empty(); }, INFINITE, false) != WAIT_OBJECT_0) {
        if (!world.processes.RunUnstartedThread()) {
            return -1;
        }
    }
    *message = queue.front();
    queue.pop_front();
    return message->message == WM_QUIT ? 0 : 1;
}

BOOL PeekMessageW(MSG* message, HWND /*window*/, unsigned /*filterMin*/, unsigned /*filterMax*/, unsigned removeFlags)
{
    auto& world = sim::TheWorld();
    auto& queue = world.processes.messageQueues[world.processes.currentThreadId];
    if (queue.empty()) {
        return 0;
    }
    *message = queue.front();
    if (removeFlags != PM_NOREMOVE) {
        queue.pop_front();
    }
    return 1;
}

BOOL TranslateMessage(const MSG* /*message*/)
{
    return 0;
}

LPARAM DispatchMessageW(const MSG* /*message*/)
{
    return 0;
}

BOOL PostThreadMessageW(DWORD threadId, unsigned message, WPARAM wParam, LPARAM lParam)
{
    auto& queues = sim::TheWorld().processes.messageQueues;
    auto const queue = queues.find(threadId);
    if (queue == queues.end()) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return 0;
    }
    MSG posted{};
    posted.message = message;
    posted.wParam = wParam;
    posted.lParam = lParam;
    queue->second.push_back(posted);
    return 1;
}

DWORD GetCurrentThreadId()
{
    return sim::TheWorld().processes.currentThreadId;
}

int MessageBoxW(HWND /*owner*/, const WCHAR* text, const WCHAR* caption, unsigned type)
{
    sim::TheWorld().processes.messageBoxes.push_back(
        sim::MessageBoxRecord{text ? text : u"", caption ? caption : u"", type});
    return IDOK;
}

}  // namespace hf::os
