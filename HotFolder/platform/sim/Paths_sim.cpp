// The shell's path functions and the string comparisons, by Windows' rules.
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Paths.h"
#include "platform/sim/SimCaseFold.h"
#include "platform/sim/SimWorld.h"

#include <string>
#include <vector>

namespace hf::os {

namespace {

std::u16string_view Counted(const WCHAR* text, int count)
{
    return count < 0 ? std::u16string_view(text) : std::u16string_view(text, static_cast<std::size_t>(count));
}

// The root that canonicalisation keeps as it is: "X:\", "X:", "\\" or "\".
std::size_t RootLength(std::u16string_view path)
{
    if (path.size() >= 2 && path[1] == u':') {
        return path.size() >= 3 && path[2] == u'\\' ? 3 : 2;
    }
    if (path.size() >= 2 && path[0] == u'\\' && path[1] == u'\\') {
        return 2;
    }
    return !path.empty() && path[0] == u'\\' ? 1 : 0;
}

}  // namespace

BOOL PathIsRelativeW(const WCHAR* path)
{
    if (path == nullptr || path[0] == 0) {
        return 1;
    }
    if (path[0] == u'\\' || path[1] == u':') {
        return 0;
    }
    return 1;
}

BOOL PathCanonicalizeW(WCHAR* destination, const WCHAR* source)
{
    if (destination == nullptr || source == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    destination[0] = 0;
    std::u16string_view const path(source);
    if (path.size() >= kMaxPath) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    if (path.empty()) {
        destination[0] = u'\\';
        destination[1] = 0;
        return 1;
    }
    std::size_t const rootLength = RootLength(path);
    std::u16string result(path.substr(0, rootLength));
    std::vector<std::u16string_view> segments;
    std::u16string_view rest = path.substr(rootLength);
    bool endsWithSeparator = false;
    while (!rest.empty()) {
        std::size_t const slash = rest.find(u'\\');
        std::u16string_view const segment = rest.substr(0, slash);
        endsWithSeparator = slash != std::u16string_view::npos && slash + 1 == rest.size();
        if (segment == u".") {
            endsWithSeparator = endsWithSeparator && !segments.empty();
        } else if (segment == u"..") {
            if (!segments.empty()) {
                segments.pop_back();
            }
            endsWithSeparator = endsWithSeparator && !segments.empty();
        } else {
            segments.push_back(segment);
        }
        rest = slash == std::u16string_view::npos ? std::u16string_view() : rest.substr(slash + 1);
    }
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (i > 0) {
            result += u'\\';
        }
        result += segments[i];
    }
    if (endsWithSeparator) {
        result += u'\\';
    }
    if (result.size() == 2 && result[1] == u':') {
        result += u'\\';  // a bare drive becomes its root
    }
    if (result.size() >= kMaxPath) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    std::copy(result.begin(), result.end(), destination);
    destination[result.size()] = 0;
    return 1;
}

BOOL PathRemoveFileSpecW(WCHAR* path)
{
    if (path == nullptr) {
        return 0;
    }
    WCHAR* cut = path;
    WCHAR* at = path;
    // A leading "\" or "\\" belongs to the root.
    if (*at == u'\\') {
        cut = ++at;
    }
    if (*at == u'\\') {
        cut = ++at;
    }
    for (; *at != 0; ++at) {
        if (*at == u'\\') {
            cut = at;
        } else if (*at == u':') {
            // A drive's root stays whole: the backslash after the colon is not a separator.
            cut = at + 1;
            if (at[1] == u'\\') {
                cut = ++at + 1;
            }
        }
    }
    if (*cut == 0) {
        return 0;
    }
    *cut = 0;
    return 1;
}

const WCHAR* PathFindFileNameW(const WCHAR* path)
{
    const WCHAR* name = path;
    for (const WCHAR* at = path; *at != 0; ++at) {
        if ((*at == u'\\' || *at == u'/' || *at == u':') && at[1] != 0 && at[1] != u'\\' && at[1] != u'/') {
            name = at + 1;
        }
    }
    return name;
}

WCHAR* PathFindFileNameW(WCHAR* path)
{
    return const_cast<WCHAR*>(PathFindFileNameW(static_cast<const WCHAR*>(path)));
}

// One pattern; the lists of patterns separated by ";" that Windows also takes are not needed here.
BOOL PathMatchSpecW(const WCHAR* file, const WCHAR* spec)
{
    return file != nullptr && spec != nullptr && sim::MatchesWildcards(file, spec) ? 1 : 0;
}

BOOL PathIsDirectoryW(const WCHAR* path)
{
    std::shared_ptr<sim::FileNode> node = sim::TheWorld().files.Find(path ? path : u"");
    return node && node->isDirectory ? 1 : 0;
}

int CompareStringW(DWORD /*locale*/, DWORD flags, const WCHAR* string1, int count1, const WCHAR* string2, int count2)
{
    if (string1 == nullptr || string2 == nullptr || count1 < -1 || count2 < -1) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if ((flags & ~NORM_IGNORECASE) != 0) {
        SetLastError(ERROR_INVALID_FLAGS);
        return 0;
    }
    std::u16string_view const a = Counted(string1, count1);
    std::u16string_view const b = Counted(string2, count2);
    int order = sim::CompareFolded(a, b);
    if (order == 0 && (flags & NORM_IGNORECASE) == 0) {
        // Without NORM_IGNORECASE, case decides last, small letters first.
        order = -a.compare(b);
    }
    return order < 0 ? CSTR_LESS_THAN : order == 0 ? CSTR_EQUAL : CSTR_GREATER_THAN;
}

int _wcsicmp(const WCHAR* string1, const WCHAR* string2)
{
    auto lower = [](WCHAR c) {
        return (c >= u'A' && c <= u'Z') ? static_cast<int>(c - u'A' + u'a') : static_cast<int>(c);
    };
    for (;; ++string1, ++string2) {
        int const x = lower(*string1);
        int const y = lower(*string2);
        if (x != y || x == 0) {
            return x - y;
        }
    }
}

}  // namespace hf::os
