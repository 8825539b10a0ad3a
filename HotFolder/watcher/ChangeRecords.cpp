#include "watcher/ChangeRecords.h"

#include <cstring>

namespace hf {

namespace {

// NextEntryOffset, Action and FileNameLength, then the name's UTF-16 units.
constexpr std::size_t kHeaderBytes = 3 * sizeof(DWORD);

DWORD DwordAt(BYTE const* at)
{
    DWORD value = 0;
    std::memcpy(&value, at, sizeof value);
    return value;
}

}  // namespace

bool ChangeRecordWalk::Next(ChangeRecord& record)
{
    if (ended_ || size_ < kHeaderBytes || offset_ > size_ - kHeaderBytes) {
        ended_ = true;
        return false;
    }
    BYTE const* const at = buffer_ + offset_;
    DWORD const nextEntryOffset = DwordAt(at);
    DWORD const nameBytes = DwordAt(at + 2 * sizeof(DWORD));
    if (nameBytes > size_ - offset_ - kHeaderBytes) {
        ended_ = true;
        return false;
    }
    record.Action = DwordAt(at + sizeof(DWORD));
    record.FileName.resize(nameBytes / sizeof(char16_t));
    std::memcpy(record.FileName.data(), at + kHeaderBytes, record.FileName.size() * sizeof(char16_t));
    if (nextEntryOffset == 0) {
        ended_ = true;
    } else {
        offset_ += nextEntryOffset;
    }
    return true;
}

}  // namespace hf
