#include "supervisor/BinaryValueReader.h"

#include "platform/Constants.h"
#include "platform/Registry.h"

#include <cstdlib>

namespace hf {

namespace {
constexpr DWORD kFirstBufferSize = 256;
}

BinaryValueReader::BinaryValueReader(HKEY key, std::u16string const& name)
{
    DWORD capacity = kFirstBufferSize;
    for (;;) {
        auto* grown = static_cast<BYTE*>(std::realloc(data_, capacity));
        if (grown == nullptr) {
            status_ = static_cast<LONG>(ERROR_NOT_ENOUGH_MEMORY);
            return;
        }
        data_ = grown;
        size_ = capacity;
        DWORD type = 0;
        LONG const result = os::RegQueryValueExW(key, name.c_str(), nullptr, &type, data_, &size_);
        if (result == 0) {
            status_ = type == REG_BINARY ? 0 : static_cast<LONG>(ERROR_INVALID_DATA);
            return;
        }
        if (result != static_cast<LONG>(ERROR_INSUFFICIENT_BUFFER)) {
            status_ = result;
            return;
        }
        // Twice the buffer just tried, not the size the registry asked for.
        capacity *= 2;
    }
}

BinaryValueReader::~BinaryValueReader()
{
    std::free(data_);
}

}  // namespace hf
