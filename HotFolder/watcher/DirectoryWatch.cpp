#include "watcher/DirectoryWatch.h"

#include "EventReporter.h"
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "watcher/HotFolderTree.h"
#include "watcher/HotFolderWatcher.h"
#include "watcher/InputFiles.h"
#include "watcher/PathRules.h"

#include <memory>

namespace hf {

namespace {

static_assert(kWatchFilter == (FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE),
              "watches ask for file names, sizes and last-write times");

DirectoryWatch& WatchOf(OVERLAPPED* overlapped)
{
    // The OVERLAPPED is the watch's first member.
    return *reinterpret_cast<DirectoryWatch*>(overlapped);
}

// Calls `visit` for every record of the buffer, from the first one, whatever
// byte count the completion gave: a completion of zero bytes (changes were
// lost) walks again the records of the previous one. A buffer that no read has
// filled yet holds no records.
template <typename Visit>
void ForEachRecord(DirectoryWatch& watch, DWORD bytesTransferred, Visit visit)
{
    if (bytesTransferred > 0) {
        watch.holdsRecords = true;
    }
    if (!watch.holdsRecords) {
        return;
    }
    ChangeRecordWalk walk(watch.buffer, kChangeBufferSize);
    ChangeRecord record;
    while (walk.Next(record)) {
        visit(record);
    }
}

void ReportCompletionError(DirectoryWatch const& watch, DWORD errorCode)
{
    watch.owner->events->Report(EVENTLOG_ERROR_TYPE, MSG_OVERLAPPED_CALLBACK_ERROR,
                                {watch.path, DecimalText(static_cast<std::int32_t>(errorCode))});
}

// Ends a watch that no hot folder uses any more: its table entry goes, its directory is closed.
void EndWatch(DirectoryWatch* watch)
{
    WatchTable& watches = watch->owner->watches;
    auto const entry = watches.find(watch->path);
    if (entry != watches.end() && entry->second == watch) {
        watches.erase(entry);
    }
    delete watch;
}

// Completes the folder's outstanding read by making a file there and deleting it again.
void WakeWatch(std::u16string const& folder)
{
    WCHAR name[os::kMaxPath] = {};
    if (os::GetTempFileNameW(folder.c_str(), u"WakeUp", 0, name) == 0) {
        return;
    }
    // Closing the handle deletes the file.
    UniqueFileHandle file(os::CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                          FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
}

}  // namespace

bool OpenDirectoryWatch(std::u16string const& path, DirectoryWatch& watch, HotFolderWatcher& owner)
{
    HANDLE const directory =
        os::CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
    if (directory == INVALID_HANDLE_VALUE) {
        owner.events->Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_FOLDER_FAILED, {path, LastErrorText()});
        return false;
    }
    watch.directory.reset(directory);
    watch.path = path;
    watch.owner = &owner;
    return true;
}

bool ArmDirectoryWatch(DirectoryWatch& watch, DWORD filter, LPOVERLAPPED_COMPLETION_ROUTINE routine,
                       bool leaveOutSubtree)
{
    DWORD unused = 0;
    if (!os::ReadDirectoryChangesW(watch.directory.get(), watch.buffer, kChangeBufferSize,
                                   leaveOutSubtree ? FALSE : TRUE, filter, &unused, &watch.overlapped, routine)) {
        watch.owner->events->Report(EVENTLOG_ERROR_TYPE, MSG_READ_DIRECTORY_CHANGES_FAILED,
                                    {watch.path, LastErrorText()});
        return false;
    }
    return true;
}

void AddDirectoryWatch(HotFolderWatcher& watcher, std::u16string const& folder)
{
    DirectoryWatch& root = *watcher.rootWatch;
    // Characters only, with no test that a backslash follows: a sibling of the
    // root whose name begins with the root's name counts as below it.
    std::u16string const prefix = folder.size() > root.path.size() ? folder.substr(0, root.path.size()) : folder;
    if (PathIEquals(prefix, root.path)) {
        watcher.watches.emplace(folder, &root);
        ++root.useCount;
        return;
    }
    // Not value-initialised: zeroing the buffer would touch every one of its
    // pages for each watch, and a read fills it before anything is walked.
    std::unique_ptr<DirectoryWatch> watch(new DirectoryWatch);
    if (!OpenDirectoryWatch(folder, *watch, watcher)) {
        return;
    }
    DirectoryWatch* const record = watch.release();  // owned through `watches` from here on
    watcher.watches.emplace(folder, record);
    ArmDirectoryWatch(*record, kWatchFilter, OnFolderChange, true);
}

void ReleaseDirectoryWatch(HotFolderWatcher& watcher, std::u16string const& folder)
{
    auto const entry = watcher.watches.find(folder);
    if (entry == watcher.watches.end() || entry->second->useCount == 0) {
        return;
    }
    DirectoryWatch& watch = *entry->second;
    --watch.useCount;
    if (watch.useCount == 0 && !folder.empty()) {
        WakeWatch(folder);
    }
}

void OnFolderChange(DWORD errorCode, DWORD bytesTransferred, OVERLAPPED* overlapped)
{
    DirectoryWatch& watch = WatchOf(overlapped);
    if (errorCode != 0) {
        // The watch stays in its table, silent, until the process ends.
        ReportCompletionError(watch, errorCode);
        return;
    }
    if (watch.useCount == 0) {
        EndWatch(&watch);
        return;
    }
    ForEachRecord(watch, bytesTransferred, [&watch](ChangeRecord const& record) {
        ReportFileAction(*watch.owner->events, watch.path, record);
        HandleFileAction(record, watch);
    });
    ArmDirectoryWatch(watch, kWatchFilter, OnFolderChange, true);
}

void OnRootChange(DWORD errorCode, DWORD bytesTransferred, OVERLAPPED* overlapped)
{
    DirectoryWatch& root = WatchOf(overlapped);
    if (errorCode != 0) {
        // From now on no Desktop.ini change and no file below the root is seen.
        ReportCompletionError(root, errorCode);
        return;
    }
    ForEachRecord(root, bytesTransferred, [&root](ChangeRecord const& record) {
        ReportFileAction(*root.owner->events, root.path, record);
        if (IsSettingsChange(record.FileName)) {
            LoadHotFolder(JoinPath(root.path, record.FileName), *root.owner);
        } else {
            HandleFileAction(record, root);
        }
    });
    ArmDirectoryWatch(root, kWatchFilter, OnRootChange, false);
}

void ReportFileAction(EventReporter& events, std::u16string const& watchedPath, ChangeRecord const& record)
{
    WORD type = EVENTLOG_INFORMATION_TYPE;
    DWORD messageId = 0;
    switch (record.Action) {
        case FILE_ACTION_ADDED:
            messageId = MSG_FILE_ADDED;
            break;
        case FILE_ACTION_REMOVED:
            messageId = MSG_FILE_REMOVED;
            break;
        case FILE_ACTION_MODIFIED:
            messageId = MSG_FILE_MODIFIED;
            break;
        case FILE_ACTION_RENAMED_OLD_NAME:
            messageId = MSG_FILE_RENAMED_OLD;
            break;
        case FILE_ACTION_RENAMED_NEW_NAME:
            messageId = MSG_FILE_RENAMED_NEW;
            break;
        default:
            type = EVENTLOG_WARNING_TYPE;
            messageId = MSG_FILE_UNKNOWN_ACTION;
            break;
    }
    events.Report(type, messageId, {watchedPath, record.FileName});
}

}  // namespace hf
