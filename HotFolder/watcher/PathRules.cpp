#include "watcher/PathRules.h"

#include "platform/Constants.h"
#include "platform/Paths.h"

namespace hf {

std::u16string JoinPath(std::u16string const& a, std::u16string const& b)
{
    if (a.empty()) {
        return b;
    }
    if (b.empty()) {
        return a;
    }
    std::u16string joined;
    joined.reserve(a.size() + 1 + b.size());
    joined += a;
    if (a.back() != u'\\') {
        joined += u'\\';
    }
    joined += b;
    return joined;
}

bool PathLess(std::u16string const& a, std::u16string const& b)
{
    return os::CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, a.c_str(), static_cast<int>(a.size()), b.c_str(),
                              static_cast<int>(b.size())) == CSTR_LESS_THAN;
}

bool PathIEquals(std::u16string const& a, std::u16string const& b)
{
    return os::_wcsicmp(a.c_str(), b.c_str()) == 0;
}

}  // namespace hf
