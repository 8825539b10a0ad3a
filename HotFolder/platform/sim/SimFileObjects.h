// The kernel objects behind the simulated file system's handles: open files
// and open directories, the latter with their change reads.
#pragma once

#include "platform/sim/SimFileSystem.h"
#include "platform/sim/SimWorld.h"

#include <deque>
#include <string_view>

namespace hf::sim {

// One record a watch holds until a read takes it.
struct ChangeRecord {
    DWORD action = 0;
    std::u16string name;
};

// A directory opened with FILE_FLAG_BACKUP_SEMANTICS. Its first change read
// starts the watch; from then on every change it sees is kept and handed to
// the next read (all of them, or none when they do not fit its buffer), whose
// completion routine is queued for the next alertable wait.
class DirectoryHandle : public IoObject, public std::enable_shared_from_this<DirectoryHandle> {
public:
    explicit DirectoryHandle(std::shared_ptr<FileNode> node) : node(std::move(node)) {}

    // ReadDirectoryChangesW.
    BOOL StartRead(void* buffer, DWORD size, bool watchSubtree, DWORD filter, OVERLAPPED* overlapped,
                   LPOVERLAPPED_COMPLETION_ROUTINE routine);
    // A change `depth` levels below the directory (0: an entry of the directory itself), named
    // relative to it; `changeKind` is the notify-filter bit the change falls under.
    void Record(DWORD action, std::u16string const& name, DWORD changeKind, int depth);
    void LoseChanges();
    // Completes the oldest outstanding read at once as if the system had put
    // `bytes` at the start of its buffer (no more than the read's size) and
    // reported `count` bytes and `error`, whatever they hold: records that no
    // change of the simulated files would make. A test calls it from a
    // completion it queued, so that the routine runs inside an alertable wait.
    // False when no read is outstanding.
    bool CompleteWith(DWORD error, std::string_view bytes, DWORD count);
    // Reads started and not yet completed.
    std::size_t OutstandingReads() const { return reads_.size(); }
    // Whether a read has started a watch of the subtree.
    bool WatchesSubtree() const;
    void OnClose() override;

    std::shared_ptr<FileNode> node;

private:
    struct Read {
        BYTE* buffer;
        DWORD size;
        OVERLAPPED* overlapped;
        LPOVERLAPPED_COMPLETION_ROUTINE routine;
    };

    void CompleteLater();
    void Complete();

    bool watching_ = false;
    bool watchSubtree_ = false;
    DWORD filter_ = 0;
    bool lost_ = false;
    bool closed_ = false;
    bool completionQueued_ = false;
    std::deque<ChangeRecord> held_;
    std::deque<Read> reads_;
};

// A file opened by CreateFileW.
class FileHandle : public IoObject {
public:
    FileHandle(std::shared_ptr<FileNode> node, bool deleteOnClose) : node(std::move(node)), deleteOnClose(deleteOnClose)
    {
    }
    void OnClose() override;

    std::shared_ptr<FileNode> node;
    bool deleteOnClose;
};

}  // namespace hf::sim
