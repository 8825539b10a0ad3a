// The bytes of one fuzz input, taken from the front as a target's script asks
// for them. Past the end every number is 0 and every run of bytes empty, so
// any input, however short, is a whole script.
#pragma once

#include "platform/Types.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace hf::fuzz {

class FuzzInput {
public:
    FuzzInput(std::uint8_t const* data, std::size_t size) : data_(data), size_(size) {}

    bool Empty() const { return offset_ == size_; }
    std::size_t Left() const { return size_ - offset_; }

    BYTE Byte() { return static_cast<BYTE>(Little(1)); }
    WORD Word() { return static_cast<WORD>(Little(2)); }
    DWORD Dword() { return static_cast<DWORD>(Little(4)); }

    // The next `count` bytes, or as many as are left.
    std::string_view Bytes(std::size_t count)
    {
        std::size_t const taken = count < Left() ? count : Left();
        std::string_view const bytes(reinterpret_cast<char const*>(data_ + offset_), taken);
        offset_ += taken;
        return bytes;
    }

    // A text of `bytes` bytes: UTF-16 little-endian units, or UTF-8 when `utf8`.
    std::u16string Text(std::size_t bytes, bool utf8);

private:
    // A little-endian number of `count` bytes.
    std::uint64_t Little(std::size_t count)
    {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < count && !Empty(); ++i) {
            value |= static_cast<std::uint64_t>(data_[offset_++]) << (8 * i);
        }
        return value;
    }

    std::uint8_t const* data_;
    std::size_t size_;
    std::size_t offset_ = 0;
};

}  // namespace hf::fuzz
