// What the fuzz targets share: a fresh simulated machine for every input, the
// alertable waits that run the queued completion routines, and the failure of
// a rule, which libFuzzer reports as a crash and keeps the input for.
#pragma once

#include "platform/Types.h"
#include "platform/UniqueHandle.h"
#include "platform/sim/SimEventLog.h"

#include <initializer_list>
#include <string>
#include <vector>

namespace hf::fuzz {

// Stops the run: `rule` did not hold for this input; `detail` says how.
[[noreturn]] void Violated(char const* rule, std::string const& detail = {});

#define HF_FUZZ_CHECK(condition, detail)              \
    do {                                              \
        if (!(condition)) {                           \
            ::hf::fuzz::Violated(#condition, detail); \
        }                                             \
    } while (false)

// Resets the simulated machine, as a new process on a new machine, and keeps
// an event of its own to wait on.
class FreshMachine {
public:
    FreshMachine();
    ~FreshMachine();
    FreshMachine(const FreshMachine&) = delete;
    FreshMachine& operator=(const FreshMachine&) = delete;

    // Runs every queued completion routine, and those they queue, in alertable
    // waits with no time-out, as the watcher loop drains them.
    void RunCompletions();

private:
    UniqueKernelHandle idle_;
};

// The event log's records from `first` on.
std::vector<sim::EventRecord> EventsSince(std::size_t first);

// "id type [strings]" of a record, for the detail of a broken rule.
std::string Describe(sim::EventRecord const& record);

// Whether a record is exactly this report.
bool IsReport(sim::EventRecord const& record, WORD type, DWORD id, std::initializer_list<std::u16string> strings);

}  // namespace hf::fuzz
