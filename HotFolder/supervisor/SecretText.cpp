#include "supervisor/SecretText.h"

#include "platform/Constants.h"
#include "platform/EventLog.h"

#include <cstring>
#include <new>
#include <utility>

namespace hf {

SecretText::SecretText(const WCHAR* units, std::size_t length) : capacity_(length + 1), length_(length)
{
    buffer_ = static_cast<WCHAR*>(os::LocalAlloc(LMEM_FIXED, capacity_ * sizeof(WCHAR)));
    if (buffer_ == nullptr) {
        throw std::bad_alloc();
    }
    if (length != 0) {
        std::memcpy(buffer_, units, length * sizeof(WCHAR));
    }
    buffer_[length] = u'\0';
}

SecretText::~SecretText()
{
    Release();
}

SecretText::SecretText(SecretText&& other) noexcept
    : buffer_(std::exchange(other.buffer_, nullptr)),
      capacity_(std::exchange(other.capacity_, 0)),
      length_(std::exchange(other.length_, 0))
{
}

SecretText& SecretText::operator=(SecretText&& other) noexcept
{
    if (this != &other) {
        Release();
        buffer_ = std::exchange(other.buffer_, nullptr);
        capacity_ = std::exchange(other.capacity_, 0);
        length_ = std::exchange(other.length_, 0);
    }
    return *this;
}

void SecretText::Wipe() noexcept
{
    WipeBytes(buffer_, capacity_ * sizeof(WCHAR));
    length_ = 0;
}

void SecretText::Release() noexcept
{
    if (buffer_ != nullptr) {
        os::LocalFree(buffer_);
        buffer_ = nullptr;
    }
    capacity_ = 0;
    length_ = 0;
}

void WipeBytes(void* bytes, std::size_t count) noexcept
{
    // Writes through a volatile pointer are never dropped as dead stores, even
    // into memory that is released right afterwards.
    auto* out = static_cast<volatile unsigned char*>(bytes);
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = 0;
    }
}

}  // namespace hf
