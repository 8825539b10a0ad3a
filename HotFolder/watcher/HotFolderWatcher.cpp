#include "watcher/HotFolderWatcher.h"

#include "watcher/DirectoryWatch.h"

#include <set>
#include <vector>

namespace hf {

bool SpecInputOrder::operator()(HotFolderSpecPtr const& a, HotFolderSpecPtr const& b) const
{
    if (PathLess(a->InputFolder, b->InputFolder)) {
        return true;
    }
    if (PathLess(b->InputFolder, a->InputFolder)) {
        return false;
    }
    return PathLess(a->DesktopIniPath, b->DesktopIniPath);
}

bool SpecIniOrder::operator()(HotFolderSpecPtr const& a, HotFolderSpecPtr const& b) const
{
    return PathLess(a->DesktopIniPath, b->DesktopIniPath);
}

namespace {

// Input folders' watches that still have a read outstanding when the watcher
// ends. A watch is only ever closed by its own completion routine, and the
// system may write into its OVERLAPPED and buffer until the read completes, so
// these are neither closed nor freed: they are kept here, directories open,
// for the process's exit to end.
std::vector<DirectoryWatch*>& WatchesLeftToProcessExit()
{
    // Never destroyed, so the watches stay reachable to the very end.
    static auto* const watches = new std::vector<DirectoryWatch*>();
    return *watches;
}

}  // namespace

HotFolderWatcher::~HotFolderWatcher()
{
    std::set<DirectoryWatch*> inputWatches;
    for (auto const& entry : watches) {
        if (entry.second != rootWatch) {
            inputWatches.insert(entry.second);
        }
    }
    auto& leftToExit = WatchesLeftToProcessExit();
    leftToExit.insert(leftToExit.end(), inputWatches.begin(), inputWatches.end());
}

}  // namespace hf
