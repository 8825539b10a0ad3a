// The change records of one directory read. The system lays them end to end
// in the read's buffer; each says how many bytes further on the next one
// starts (0 on the last). Nothing promises that a record starts on a 4-byte
// boundary: Windows pads records so, Wine does not. So each record's fields
// are copied out of the buffer rather than read in place.
#pragma once

#include "platform/Types.h"

#include <cstddef>
#include <string>

namespace hf {

// One change record as the watcher uses it.
struct ChangeRecord {
    // 1 added, 2 removed, 3 modified, 4 renamed from, 5 renamed to; any other value is unknown.
    DWORD Action = 0;
    // Relative to the watched directory; below the root it may hold backslashes.
    std::u16string FileName;
};

// Reads the records of `buffer` one after the other, from the first. The walk
// ends after the record whose offset to the next is 0, and before a record
// whose header or name would reach past the buffer's end.
class ChangeRecordWalk {
public:
    ChangeRecordWalk(BYTE const* buffer, std::size_t size) : buffer_(buffer), size_(size) {}

    // Copies the next record into `record`; false when there is none.
    bool Next(ChangeRecord& record);

private:
    BYTE const* buffer_;
    std::size_t size_;
    std::size_t offset_ = 0;
    bool ended_ = false;
};

}  // namespace hf
