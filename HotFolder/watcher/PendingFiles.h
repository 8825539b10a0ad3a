// The files waiting to settle before they are handed on as jobs. A file is
// ready once it has been left alone for the settle time, measured from the
// latest change record that touched it. Every touch moves the file to the back
// of the queue, so the queue is ordered by the time of that record and only
// the front file's readiness ever needs testing.
#pragma once

#include "platform/Types.h"

#include <set>
#include <string>

namespace hf {

// How long a file must be left alone before it is handed on.
constexpr DWORD kSettleTimeMs = 2000;

struct PendingFile {
    // Full path, spelled as in the latest record that touched the file.
    std::u16string path;
    // GetTickCount() of that record.
    DWORD lastTouched = 0;
    // DesktopIniPath of the hot folder the file was last handed to; empty
    // while it has been handed to none since it was last touched.
    std::u16string dispatchedTo;
};

// First in, first out, with one entry per path (paths compared by PathLess).
// Each entry lives in a node of the ordered index and is linked from there
// into the queue's order, so a file costs one node besides its path's text and
// a look-up walks one node per level of the index.
class PendingFiles {
    struct Entry;

public:
    PendingFiles() = default;
    PendingFiles(const PendingFiles&) = delete;
    PendingFiles& operator=(const PendingFiles&) = delete;

    // The file changed now: it goes to the back of the queue with the new
    // spelling, a fresh tick, and no hot folder handed it yet.
    void Touch(std::u16string const& path);
    // The file went away (removed or renamed from): it leaves the queue, if it is there.
    void Forget(std::u16string const& path);

    bool IsEmpty() const { return oldest_ == nullptr; }
    // The file touched longest ago; its dispatchedTo may be updated in place.
    PendingFile& Front() { return oldest_->file; }
    PendingFile const& Front() const { return oldest_->file; }
    // The file touched last.
    PendingFile const& Back() const { return newest_->file; }
    void PopFront();

    std::size_t Size() const { return index_.size(); }

    // The files in queue order, the one touched longest ago first.
    class const_iterator {
    public:
        explicit const_iterator(Entry const* entry) : entry_(entry) {}
        PendingFile const& operator*() const { return entry_->file; }
        PendingFile const* operator->() const { return &entry_->file; }
        const_iterator& operator++()
        {
            entry_ = entry_->newer;
            return *this;
        }
        bool operator==(const_iterator const& other) const { return entry_ == other.entry_; }
        bool operator!=(const_iterator const& other) const { return entry_ != other.entry_; }

    private:
        Entry const* entry_;
    };
    const_iterator begin() const { return const_iterator(oldest_); }
    const_iterator end() const { return const_iterator(nullptr); }

private:
    // The file and its place in the queue may change while it sits in the
    // index: its path changes only to an equivalent spelling, so its place in
    // the index never does.
    struct Entry {
        explicit Entry(PendingFile file) : file(std::move(file)) {}
        mutable PendingFile file;
        mutable Entry const* older = nullptr;
        mutable Entry const* newer = nullptr;
    };

    // Orders the index by path, and finds by path alone.
    struct ByPath {
        using is_transparent = void;
        bool operator()(Entry const& a, Entry const& b) const;
        bool operator()(Entry const& a, std::u16string const& b) const;
        bool operator()(std::u16string const& a, Entry const& b) const;
    };

    void Unlink(Entry const& entry);
    void Append(Entry const& entry);

    std::set<Entry, ByPath> index_;
    Entry const* oldest_ = nullptr;
    Entry const* newest_ = nullptr;
};

// Milliseconds that `file` must still be left alone before it is ready, 0 when
// it is ready now. The age is taken in unsigned 32-bit arithmetic, so the wrap
// of the tick count does not disturb it.
DWORD SettleTimeLeft(PendingFile const& file);

}  // namespace hf
