// The files waiting to settle before they are handed on as jobs. A file is
// ready once it has been left alone for the settle time, measured from the
// latest change record that touched it. Every touch moves the file to the back
// of the queue, so the queue is ordered by the time of that record and only
// the front file's readiness ever needs testing.
#pragma once

#include "platform/Types.h"

#include <list>
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
class PendingFiles {
public:
    PendingFiles() = default;
    PendingFiles(const PendingFiles&) = delete;
    PendingFiles& operator=(const PendingFiles&) = delete;

    // The file changed now: it goes to the back of the queue with the new
    // spelling, a fresh tick, and no hot folder handed it yet.
    void Touch(std::u16string const& path);
    // The file went away (removed or renamed from): it leaves the queue, if it is there.
    void Forget(std::u16string const& path);

    bool IsEmpty() const { return order_.empty(); }
    // The file touched longest ago; its dispatchedTo may be updated in place.
    PendingFile& Front() { return order_.front(); }
    PendingFile const& Front() const { return order_.front(); }
    void PopFront();

    std::size_t Size() const { return order_.size(); }
    // The files, the one touched longest ago first.
    std::list<PendingFile> const& Entries() const { return order_; }

private:
    using Position = std::list<PendingFile>::iterator;

    // Orders the index by the path of the entry it points to, and finds by path alone.
    struct ByPath {
        using is_transparent = void;
        bool operator()(Position a, Position b) const;
        bool operator()(Position a, std::u16string const& b) const;
        bool operator()(std::u16string const& a, Position b) const;
    };

    std::list<PendingFile> order_;
    std::set<Position, ByPath> index_;
};

// Milliseconds that `file` must still be left alone before it is ready, 0 when
// it is ready now. The age is taken in unsigned 32-bit arithmetic, so the wrap
// of the tick count does not disturb it.
DWORD SettleTimeLeft(PendingFile const& file);

}  // namespace hf
