// The watcher's hot folder state, reached by the loop and by every completion
// routine: the two tables of loaded hot folder specs, the table of directory
// watches, the root's watch and the pending files. Everything here is used on
// the watcher's one thread, so nothing is locked.
#pragma once

#include "watcher/HotFolderSpec.h"
#include "watcher/PathRules.h"
#include "watcher/PendingFiles.h"

#include <map>
#include <set>
#include <string>

namespace hf {

class EventReporter;
struct DirectoryWatch;

// By InputFolder, then by DesktopIniPath (PathLess on the pointed-to specs).
struct SpecInputOrder {
    bool operator()(HotFolderSpecPtr const& a, HotFolderSpecPtr const& b) const;
};

// By DesktopIniPath (PathLess on the pointed-to specs).
struct SpecIniOrder {
    bool operator()(HotFolderSpecPtr const& a, HotFolderSpecPtr const& b) const;
};

using SpecsByInput = std::set<HotFolderSpecPtr, SpecInputOrder>;
using SpecsByIni = std::set<HotFolderSpecPtr, SpecIniOrder>;
// Input folder (and the root) to the watch that serves it; several folders may map to the root's watch.
using WatchTable = std::map<std::u16string, DirectoryWatch*, PathOrder>;

struct HotFolderWatcher {
    HotFolderWatcher() = default;
    // Leaves the input folders' watches whose reads are still outstanding to the process's exit.
    ~HotFolderWatcher();
    HotFolderWatcher(const HotFolderWatcher&) = delete;
    HotFolderWatcher& operator=(const HotFolderWatcher&) = delete;

    EventReporter* events = nullptr;
    // The same specs in both tables, at most one per DesktopIniPath.
    SpecsByInput specsByInput;
    SpecsByIni specsByIni;
    WatchTable watches;
    // Owned by the watcher loop, which keeps it for the whole run.
    DirectoryWatch* rootWatch = nullptr;
    PendingFiles pending;
};

}  // namespace hf
