// The pending-file queue at 1,000, 100,000 and 1,000,000 files: touching a
// queued file (find, then move to the back), forgetting one and queueing it
// again, and reading the front. Each operation is logarithmic in the queue's
// size; the memory each entry costs is reported beside the path it holds.
#include "WideText.h"
#include "platform/sim/SimWorld.h"
#include "watcher/PendingFiles.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <vector>

namespace hf {
namespace {

// An input folder below the root, as deep as a real one.
constexpr char kFolder[] = "C:\\Users\\clerk\\AppData\\Local\\Tarnwick Hot Folders\\Invoices\\In\\";

std::u16string FilePath(std::size_t index)
{
    char name[32];
    std::snprintf(name, sizeof name, "scan-%07zu.pdf", index);
    return Widen(std::string(kFolder) + name);
}

std::size_t HeapInUse()
{
    return mallinfo2().uordblks;
}

// One queue per size, filled once in a shuffled order, with the memory it took.
struct Queue {
    std::vector<std::u16string> paths;
    std::vector<std::uint32_t> picks;  // a random walk over the paths
    PendingFiles pending;
    double bytesPerEntry = 0;
    double pathBytes = 0;
};

Queue& QueueOf(std::size_t size)
{
    static std::map<std::size_t, std::unique_ptr<Queue>> queues;
    std::unique_ptr<Queue>& queue = queues[size];
    if (queue) {
        return *queue;
    }
    sim::TheWorld().Reset();
    queue = std::make_unique<Queue>();
    std::mt19937 random(20240611);
    std::vector<std::u16string> shuffled;
    for (std::size_t i = 0; i < size; ++i) {
        shuffled.push_back(FilePath(i));
    }
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    std::size_t const before = HeapInUse();
    for (auto const& path : shuffled) {
        queue->pending.Touch(path);
    }
    std::size_t const after = HeapInUse();
    queue->bytesPerEntry = static_cast<double>(after - before) / static_cast<double>(size);
    queue->pathBytes = static_cast<double>(shuffled.front().size() * sizeof(char16_t));
    queue->paths = std::move(shuffled);
    std::uniform_int_distribution<std::uint32_t> pick(0, static_cast<std::uint32_t>(size - 1));
    for (int i = 0; i < (1 << 16); ++i) {
        queue->picks.push_back(pick(random));
    }
    return *queue;
}

void ReportMemory(benchmark::State& state, Queue const& queue)
{
    state.counters["bytes_per_entry"] = queue.bytesPerEntry;
    state.counters["path_bytes"] = queue.pathBytes;
}

void BM_PendingTouchQueued(benchmark::State& state)
{
    Queue& queue = QueueOf(static_cast<std::size_t>(state.range(0)));
    std::size_t i = 0;
    for (auto _ : state) {
        queue.pending.Touch(queue.paths[queue.picks[i++ & 0xFFFF]]);
    }
    state.SetItemsProcessed(state.iterations());
    ReportMemory(state, queue);
}

void BM_PendingForgetAndRequeue(benchmark::State& state)
{
    Queue& queue = QueueOf(static_cast<std::size_t>(state.range(0)));
    std::size_t i = 0;
    for (auto _ : state) {
        std::u16string const& path = queue.paths[queue.picks[i++ & 0xFFFF]];
        queue.pending.Forget(path);
        queue.pending.Touch(path);
    }
    state.SetItemsProcessed(2 * state.iterations());  // two operations per iteration
    ReportMemory(state, queue);
}

void BM_PendingFront(benchmark::State& state)
{
    Queue& queue = QueueOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        PendingFile const& front = queue.pending.Front();
        benchmark::DoNotOptimize(SettleTimeLeft(front));
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_PendingPopFrontAndRequeue(benchmark::State& state)
{
    Queue& queue = QueueOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::u16string const path = queue.pending.Front().path;
        queue.pending.PopFront();
        queue.pending.Touch(path);
    }
    state.SetItemsProcessed(2 * state.iterations());
}

BENCHMARK(BM_PendingTouchQueued)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_PendingForgetAndRequeue)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_PendingFront)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_PendingPopFrontAndRequeue)->Arg(1000)->Arg(100000)->Arg(1000000);

}  // namespace
}  // namespace hf
