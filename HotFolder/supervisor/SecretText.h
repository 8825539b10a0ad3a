// A password in clear text. Its characters live in one block of the process
// heap that is never copied or shared with another text, so wiping that block
// wipes every copy there is.
#pragma once

#include "platform/Types.h"

#include <cstddef>

namespace hf {

class SecretText {
public:
    SecretText() = default;
    // Copies `length` code units (NULs included) into a block of its own, with a
    // terminator after them.
    SecretText(const WCHAR* units, std::size_t length);
    // Releases the block as it is: the owner wipes it first.
    ~SecretText();
    SecretText(SecretText&& other) noexcept;
    SecretText& operator=(SecretText&& other) noexcept;
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    // The text, terminated; "" when there is none.
    const WCHAR* c_str() const { return buffer_ != nullptr ? buffer_ : u""; }
    std::size_t length() const { return length_; }

    // Overwrites the whole block, terminator and all, with zero bytes and makes
    // the text empty.
    void Wipe() noexcept;

private:
    void Release() noexcept;

    WCHAR* buffer_ = nullptr;
    std::size_t capacity_ = 0;  // code units in the block
    std::size_t length_ = 0;
};

// Overwrites `count` bytes with zeros in a way the compiler cannot leave out.
void WipeBytes(void* bytes, std::size_t count) noexcept;

}  // namespace hf
