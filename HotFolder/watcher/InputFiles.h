// From change records to pending files, and from a settled file to the hot
// folders that take it. A file belongs to every hot folder whose InputFolder is
// the file's directory; it is handed to them one at a time, in the order of
// their DesktopIniPath.
#pragma once

#include "watcher/ChangeRecords.h"
#include "watcher/HotFolderWatcher.h"

#include <string>

namespace hf {

struct DirectoryWatch;

// Updates the pending files of the watch's owner for one change record that
// is not a settings change: added, modified and renamed-to records touch the
// file, removed and renamed-from records forget it. Directories and files of
// folders that no hot folder takes are left alone.
void HandleFileAction(ChangeRecord const& record, DirectoryWatch& watch);

// Whether some hot folder takes the file's directory as its InputFolder.
bool IsWatchedInputFile(std::u16string const& filePath, SpecsByInput const& specsByInput);

// The next hot folder, after the one in `file.dispatchedTo`, that takes the
// file, recorded in `file.dispatchedTo`; null when there is none.
HotFolderSpecPtr NextSpecFor(PendingFile& file, SpecsByInput const& specsByInput);

}  // namespace hf
