// The path operations of the watcher: joining, the order of every path-keyed
// table, and the equality that confirms a table look-up. The order and the
// confirmation are different rules on purpose: tables order and find paths by
// the invariant locale's case-insensitive linguistic comparison, while a found
// entry is confirmed by the C runtime's comparison, which folds only A to Z.
#pragma once

#include <string>

namespace hf {

// a, then one backslash unless a ends with one, then b; either alone when the
// other is empty. Nothing is normalised; a backslash that b begins with stays.
std::u16string JoinPath(std::u16string const& a, std::u16string const& b);

// True when CompareStringW (invariant locale, ignoring case) puts a before b.
bool PathLess(std::u16string const& a, std::u16string const& b);

// True when _wcsicmp finds the two equal.
bool PathIEquals(std::u16string const& a, std::u16string const& b);

// PathLess as the ordering of an ordered container.
struct PathOrder {
    bool operator()(std::u16string const& a, std::u16string const& b) const { return PathLess(a, b); }
};

}  // namespace hf
