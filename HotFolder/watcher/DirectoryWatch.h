// Watching directories for changes. The root folder has one watch of its whole
// subtree, which serves both the hot folders' Desktop.ini files and every input
// folder below the root; each input folder outside the root has one watch of
// its own, shared by use count among the hot folders that name it. Every
// change record is reported to the event log, one event per record.
//
// Each watch keeps exactly one directory read outstanding. Its completion
// routine runs on the watcher's thread inside the loop's alertable wait, walks
// the records, and issues the next read. A watch is ended only from inside its
// own completion routine: when the last hot folder lets go of it, a wake-up
// file is made in the folder to complete the read.
#pragma once

#include "platform/Files.h"
#include "platform/Types.h"
#include "platform/UniqueHandle.h"
#include "watcher/ChangeRecords.h"

#include <string>

namespace hf {

class EventReporter;
struct HotFolderWatcher;

// One read's buffer: large enough that the system rarely loses changes.
constexpr DWORD kChangeBufferSize = 262144;

// File names, sizes and last-write times: FILE_NOTIFY_CHANGE_FILE_NAME |
// FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE. Directory names are
// not asked for.
constexpr DWORD kWatchFilter = 0x19;

struct DirectoryWatch {
    DirectoryWatch() = default;
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;

    // First, so the OVERLAPPED that a completion routine receives is the address of its watch.
    OVERLAPPED overlapped{};
    UniqueFileHandle directory;
    // The watched directory, exactly as it was opened.
    std::u16string path;
    // The records of the latest completed read. Left uninitialised when the
    // watch is made; `holdsRecords` says when a read has filled it.
    alignas(DWORD) BYTE buffer[kChangeBufferSize];
    // The hot folders that rely on this watch (for the root, 1 for its own use besides).
    DWORD useCount = 1;
    HotFolderWatcher* owner = nullptr;
    // Whether a read has ever put records into the buffer; until then a completion
    // that reports zero bytes has nothing to walk again.
    bool holdsRecords = false;
};

// Opens `path` for change reads and makes it the watch's directory; message 35 on failure.
bool OpenDirectoryWatch(std::u16string const& path, DirectoryWatch& watch, HotFolderWatcher& owner);

// Issues the watch's next read, of the subtree unless `leaveOutSubtree`; message 36 on failure.
bool ArmDirectoryWatch(DirectoryWatch& watch, DWORD filter, LPOVERLAPPED_COMPLETION_ROUTINE routine,
                       bool leaveOutSubtree);

// Gives an input folder a watch: the root's when the folder lies below it, else a new one.
// Called only for a folder that `watches` has no entry for.
void AddDirectoryWatch(HotFolderWatcher& watcher, std::u16string const& folder);

// Drops one use of the input folder's watch; the last use wakes the watch so that it ends.
void ReleaseDirectoryWatch(HotFolderWatcher& watcher, std::u16string const& folder);

// The completion routines of the root's watch and of the input folders' watches.
void OnRootChange(DWORD errorCode, DWORD bytesTransferred, OVERLAPPED* overlapped);
void OnFolderChange(DWORD errorCode, DWORD bytesTransferred, OVERLAPPED* overlapped);

// Reports one change record (messages 38 to 43).
void ReportFileAction(EventReporter& events, std::u16string const& watchedPath, ChangeRecord const& record);

}  // namespace hf
