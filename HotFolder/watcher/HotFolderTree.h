// The user's hot folder tree: the root folder "Tarnwick Hot Folders" in the
// local application-data folder, and its first-level subfolders, each of which
// is a hot folder when its Desktop.ini is complete. A hot folder is known only
// by the path of its Desktop.ini; it comes into being when that file loads,
// is replaced by every reload and ends when a reload fails.
#pragma once

#include "watcher/HotFolderSpec.h"

#include <cstddef>
#include <string>

namespace hf {

class EventReporter;
struct DirectoryWatch;
struct HotFolderWatcher;

// The root folder's path, created when missing (the last level only). False
// when SHGetFolderPathW fails (then `path` keeps what it held) or the folder
// cannot be created (then `path` holds the path all the same).
bool GetRootFolderPath(std::u16string& path);

// How the start-up of the tree ended, and so where the watcher's teardown begins.
enum class TreeStart {
    // The root is watched and the hot folders found in it are loaded (message 60).
    Watching,
    // No root folder (message 34): nothing of the tree needs tearing down.
    NoRootFolder,
    // The root could not be opened or watched (message 59): the tables and the root's watch are torn down.
    RootNotWatched,
};

// The tree's start-up, before the watcher loop begins: finds or creates the
// root into `rootPath`, prepares `rootWatch` and `watcher`, starts the root's
// watch of its subtree and loads the hot folders that exist.
TreeStart StartHotFolderTree(EventReporter& events, std::u16string& rootPath, DirectoryWatch& rootWatch,
                             HotFolderWatcher& watcher);

// Loads the hot folder of every first-level subfolder of the root.
void DiscoverHotFolders(DirectoryWatch& root);

// Loads, reloads or drops the hot folder of this Desktop.ini.
void LoadHotFolder(std::u16string const& desktopIniPath, HotFolderWatcher& watcher);

// Takes a spec out of both tables and lets go of its input folder's watch.
void RemoveHotFolder(HotFolderWatcher& watcher, HotFolderSpecPtr spec);

// Whether a record of the root's watch (its name relative to the root) is
// about the Desktop.ini of a hot folder: exactly one level down.
bool IsSettingsChange(std::u16string const& name);

// The backslashes of `text` once its trailing and then its leading backslashes are removed.
std::size_t CountBackslashes(std::u16string text);

}  // namespace hf
