// What the test plug-in is told to do, from its command line and from the
// environment variable TARNWICK_TEST_PLUGIN (the way to reach it when the
// watcher starts it with no arguments). Switches, each "-name:value":
//
//   -reply:N        the byte that answers every job (default 1; 0 asks the
//                   watcher to end the connection)
//   -delay:MS       wait this long before each answer (a slow plug-in)
//   -break:N        close the connection instead of answering the N-th job
//   -exit:N         end the program after answering the N-th job; -exit:0
//                   ends it at once, before the pipe exists
//   -startdelay:MS  wait this long before creating the pipe (Acrobat loading)
//   -lifetime:MS    end the program after this long whatever happens (a
//                   guard for tests, so no copy outlives its test)
//   -journal:PATH   the journal file (default: TestPlugIn.journal.txt beside
//                   the program)
//   -bench:1        answer every job the moment it is read, carry nothing out,
//                   and journal afterwards (for measuring the watcher)
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace hf::testplugin {

struct PlugInOptions {
    unsigned char reply = 1;
    unsigned delayMs = 0;
    std::optional<unsigned> breakAtJob;
    std::optional<unsigned> exitAfterJob;
    unsigned startDelayMs = 0;
    std::optional<unsigned> lifetimeMs;
    std::u16string journal;
    bool benchmark = false;
};

// Applies the switches in order (later ones win); false, with `error` set,
// at the first switch it does not know or whose value is not a number.
bool ApplySwitches(std::vector<std::u16string> const& switches, PlugInOptions& options, std::string& error);

}  // namespace hf::testplugin
