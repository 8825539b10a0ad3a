#include "watcher/HotFolderWatcher.h"

#include "watcher/DirectoryWatch.h"

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

HotFolderWatcher::~HotFolderWatcher()
{
    // While the watcher runs, an input folder's watch is freed only by its own
    // completion routine. At the end no completion routine runs any more, so
    // what is left is closed and freed here; the root's watch belongs to the loop.
    std::set<DirectoryWatch*> owned;
    for (auto const& entry : watches) {
        if (entry.second != rootWatch) {
            owned.insert(entry.second);
        }
    }
    watches.clear();
    for (DirectoryWatch* watch : owned) {
        delete watch;
    }
}

}  // namespace hf
