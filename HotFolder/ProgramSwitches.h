// The program switches of the command line and the role they choose.
#pragma once

#include <string>
#include <vector>

namespace hf {

struct ProgramSwitches {
    bool runWatcher = false;   // -currentuser, -installuser, -asservice
    bool installUser = false;  // -installuser
    bool asService = false;    // -asservice
    // The text after -asuser:. Accepted and kept, but it selects no role and
    // reaches nothing: the watcher always runs as the process's own user.
    std::u16string asUserName;
    bool startService = false;  // -startservice, which ends the scan at once
};

// Scans the arguments after the program name. An argument counts only when it
// starts with "-" or "/"; the text after that is matched, without regard to
// ASCII case, against the keywords in a fixed order, each as a prefix of the
// keyword's own length (so -CurrentUserXYZ is -currentuser). Unknown switches
// and plain arguments are ignored.
ProgramSwitches ScanProgramSwitches(std::vector<std::u16string> const& arguments);

}  // namespace hf
