#include "acrobat/PipeNames.h"

#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Process.h"

#include <algorithm>

namespace hf {

namespace {
constexpr DWORD kFirstCapacity = 1024;
constexpr DWORD kLargestCapacity = 0x7FFFFFFF;
}  // namespace

std::u16string GetCurrentUserName()
{
    DWORD capacity = kFirstCapacity;
    for (;;) {
        std::u16string buffer(capacity, u'\0');
        DWORD size = capacity;
        if (os::GetUserNameExW(NameSamCompatible, buffer.data(), &size)) {
            buffer.resize(size);
            return buffer;
        }
        // The size the call asks for is not used: the buffer doubles until the name fits.
        if (os::GetLastError() != ERROR_MORE_DATA || capacity >= kLargestCapacity) {
            return {};
        }
        capacity *= 2;
    }
}

std::u16string MakePipeName(std::u16string const& prefix, std::u16string const& userName)
{
    std::u16string user = userName;
    std::replace(user.begin(), user.end(), u'\\', u'_');
    return u"\\\\.\\pipe\\" + prefix + user;
}

}  // namespace hf
