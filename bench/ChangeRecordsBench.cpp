// A full 256 KiB buffer of change records walked by an input folder's
// completion routine: each record reported (to an event log that only counts)
// and turned into a pending-file update.
#include "EventReporter.h"
#include "WideText.h"
#include "platform/sim/SimWorld.h"
#include "watcher/DirectoryWatch.h"
#include "watcher/HotFolderTree.h"
#include "watcher/HotFolderWatcher.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace hf {
namespace {

constexpr char16_t kInput[] = u"D:\\Scans\\Incoming";

// Fills the buffer as the system does, with records for ever new files: added,
// modified twice, then renamed to, over and over. Returns the record count.
std::size_t FillWithRecords(DirectoryWatch& watch)
{
    DWORD const actions[] = {1, 3, 3, 5};
    std::size_t offset = 0;
    std::size_t count = 0;
    std::size_t previous = 0;
    for (;; ++count) {
        char name[32];
        std::snprintf(name, sizeof name, "scan-%07zu.pdf", count / 4);
        std::u16string const wide = Widen(name);
        DWORD const nameBytes = static_cast<DWORD>(wide.size() * sizeof(char16_t));
        std::size_t const size = (12 + nameBytes + 3) & ~std::size_t{3};
        if (offset + size > kChangeBufferSize) {
            break;
        }
        if (count > 0) {
            DWORD const next = static_cast<DWORD>(offset - previous);
            std::memcpy(watch.buffer + previous, &next, 4);
        }
        DWORD const last = 0;
        std::memcpy(watch.buffer + offset, &last, 4);
        std::memcpy(watch.buffer + offset + 4, &actions[count % 4], 4);
        std::memcpy(watch.buffer + offset + 8, &nameBytes, 4);
        std::memcpy(watch.buffer + offset + 12, wide.data(), nameBytes);
        previous = offset;
        offset += size;
    }
    return count;
}

void BM_FolderChangeRecords(benchmark::State& state)
{
    sim::World& world = sim::TheWorld();
    world.Reset();
    world.eventLog.keepRecords = false;
    world.files.MakeDirectory(kInput);
    world.files.WriteFile(u"D:\\Hot\\Scans\\Desktop.ini",
                          "[Tarnwick]\r\nInputFolder=D:\\Scans\\Incoming\r\nOutputFolder=Out\r\nScript=s.py\r\n");

    EventReporter events(2);
    auto root = std::make_unique<DirectoryWatch>();
    HotFolderWatcher watcher;
    watcher.events = &events;
    watcher.rootWatch = root.get();
    root->path = u"D:\\Hot";
    LoadHotFolder(u"D:\\Hot\\Scans\\Desktop.ini", watcher);
    DirectoryWatch& watch = *watcher.watches.at(kInput);
    std::size_t const records = FillWithRecords(watch);

    std::size_t const reportedBefore = world.eventLog.Reported();
    for (auto _ : state) {
        OnFolderChange(0, kChangeBufferSize, &watch.overlapped);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(records) * state.iterations());
    state.counters["records_per_buffer"] = static_cast<double>(records);
    state.counters["events_per_record"] = static_cast<double>(world.eventLog.Reported() - reportedBefore) /
                                          static_cast<double>(records * static_cast<std::size_t>(state.iterations()));
    state.counters["pending_files"] = static_cast<double>(watcher.pending.Size());
}

BENCHMARK(BM_FolderChangeRecords)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace hf
