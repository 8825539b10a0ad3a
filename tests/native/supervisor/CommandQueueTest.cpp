// The process-wide command queue: first in, first out, with a semaphore that
// always counts the commands waiting, whichever threads post them.
#include "SimTest.h"
#include "platform/Sync.h"
#include "supervisor/CommandQueue.h"

#include <thread>

namespace hf::test {
namespace {

class CommandQueueTest : public SimTest {
protected:
    // One successful wait, as the supervisor does before every Take.
    bool CountAvailable()
    {
        HANDLE semaphore = TheCommandQueue().Semaphore();
        return os::WaitForMultipleObjects(1, &semaphore, FALSE, 0) == WAIT_OBJECT_0;
    }
};

TEST_F(CommandQueueTest, CommandsComeOutInTheOrderTheyWentIn)
{
    CommandQueue& queue = TheCommandQueue();
    queue.Post(Command{CMD_RUN, {}});
    queue.Post(Command{CMD_CONNECT, u"\\\\.\\pipe\\Tarnwick_FolderWatcher_A_b"});
    queue.Post(Command{CMD_RUN, {}});
    queue.Post(Command{0x4711, {}});
    std::vector<DWORD> codes;
    while (CountAvailable()) {
        Command const command = queue.Take();
        codes.push_back(command.code);
        if (command.code == CMD_CONNECT) {
            EXPECT_EQ(U8(command.argument), "\\\\.\\pipe\\Tarnwick_FolderWatcher_A_b");
        }
    }
    EXPECT_EQ(codes, (std::vector<DWORD>{CMD_RUN, CMD_CONNECT, CMD_RUN, 0x4711})) << "no coalescing, no priority";
}

TEST_F(CommandQueueTest, PostsFromManyThreadsAreAllCountedAndKeepEachThreadsOrder)
{
    constexpr int kThreads = 4;
    constexpr int kPostsEach = 500;
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.emplace_back([t] {
            for (int i = 0; i < kPostsEach; ++i) {
                TheCommandQueue().Post(Command{static_cast<DWORD>(t * 10000 + i), {}});
            }
        });
    }
    for (auto& producer : producers) {
        producer.join();
    }
    std::vector<int> lastSeen(kThreads, -1);
    int taken = 0;
    while (CountAvailable()) {
        DWORD const code = TheCommandQueue().Take().code;
        int const thread = static_cast<int>(code / 10000);
        int const index = static_cast<int>(code % 10000);
        EXPECT_EQ(index, lastSeen[thread] + 1) << "thread " << thread;
        lastSeen[thread] = index;
        ++taken;
    }
    EXPECT_EQ(taken, kThreads * kPostsEach);
}

}  // namespace
}  // namespace hf::test
