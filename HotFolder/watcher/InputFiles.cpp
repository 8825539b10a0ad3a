#include "watcher/InputFiles.h"

#include "platform/Constants.h"
#include "platform/Paths.h"
#include "watcher/DirectoryWatch.h"

namespace hf {

void HandleFileAction(ChangeRecord const& record, DirectoryWatch& watch)
{
    std::u16string const path = JoinPath(watch.path, record.FileName);
    if (os::PathIsDirectoryW(path.c_str())) {
        return;
    }
    if (!IsWatchedInputFile(path, watch.owner->specsByInput)) {
        return;
    }
    PendingFiles& pending = watch.owner->pending;
    switch (record.Action) {
        case FILE_ACTION_ADDED:
        case FILE_ACTION_MODIFIED:
        case FILE_ACTION_RENAMED_NEW_NAME:
            pending.Touch(path);
            break;
        case FILE_ACTION_REMOVED:
        case FILE_ACTION_RENAMED_OLD_NAME:
            pending.Forget(path);
            break;
        default:
            break;
    }
}

bool IsWatchedInputFile(std::u16string const& filePath, SpecsByInput const& specsByInput)
{
    HotFolderSpecPtr const probe = MakeProbeSpec(filePath);
    auto const first = specsByInput.lower_bound(probe);
    return first != specsByInput.end() && PathIEquals(probe->InputFolder, (*first)->InputFolder);
}

HotFolderSpecPtr NextSpecFor(PendingFile& file, SpecsByInput const& specsByInput)
{
    HotFolderSpecPtr const probe = MakeProbeSpec(file.path);
    probe->DesktopIniPath = file.dispatchedTo;
    auto const next = specsByInput.upper_bound(probe);
    if (next == specsByInput.end() || !PathIEquals(probe->InputFolder, (*next)->InputFolder)) {
        return HotFolderSpecPtr();
    }
    file.dispatchedTo = (*next)->DesktopIniPath;
    return *next;
}

}  // namespace hf
