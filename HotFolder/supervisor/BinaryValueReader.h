// Reads one REG_BINARY value into a buffer of its own.
#pragma once

#include "platform/Types.h"

#include <string>

namespace hf {

class BinaryValueReader {
public:
    // Reads the value `name` of `key` into a 256-byte buffer, doubled on
    // ERROR_INSUFFICIENT_BUFFER alone. The registry answers a buffer too small
    // with ERROR_MORE_DATA, so a value of more than 256 bytes ends with that
    // status: installed values are DPAPI blobs of a password, well under the
    // size, and a longer one is not an installed user's.
    BinaryValueReader(HKEY key, std::u16string const& name);
    ~BinaryValueReader();
    BinaryValueReader(const BinaryValueReader&) = delete;
    BinaryValueReader& operator=(const BinaryValueReader&) = delete;

    // 0 when the value was read; ERROR_INVALID_DATA for a value of another type;
    // otherwise the registry's error.
    LONG status() const { return status_; }
    // After a successful read, the number of data bytes.
    DWORD size() const { return size_; }
    BYTE* data() const { return data_; }

private:
    LONG status_ = 0;
    DWORD size_ = 0;
    BYTE* data_ = nullptr;
};

}  // namespace hf
