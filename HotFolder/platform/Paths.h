// The shell's path functions and the string comparisons that order paths.
// All of them are pure functions of their arguments.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// PathIsRelativeW: FALSE when the path starts with a backslash or has a colon as its
// second character; TRUE otherwise (the empty path included).
BOOL PathIsRelativeW(const WCHAR* path);

// PathCanonicalizeW: removes "." segments and lets ".." remove the segment before it;
// `destination` holds 260 characters. FALSE when the result does not fit.
BOOL PathCanonicalizeW(WCHAR* destination, const WCHAR* source);

// PathRemoveFileSpecW: cuts the last component (and its backslash) in place;
// TRUE when something was removed.
BOOL PathRemoveFileSpecW(WCHAR* path);

// PathFindFileNameW: pointer to the last component within `path`.
const WCHAR* PathFindFileNameW(const WCHAR* path);
WCHAR* PathFindFileNameW(WCHAR* path);

// PathMatchSpecW: whether the name matches the pattern (* any run, ? one character),
// without regard to case.
BOOL PathMatchSpecW(const WCHAR* file, const WCHAR* spec);

// PathIsDirectoryW: whether the path names an existing directory.
BOOL PathIsDirectoryW(const WCHAR* path);

// CompareStringW: linguistic comparison in a locale; CSTR_LESS_THAN, CSTR_EQUAL,
// CSTR_GREATER_THAN, or 0 on failure. Lengths are explicit (-1: up to the terminator).
int CompareStringW(DWORD locale, DWORD flags, const WCHAR* string1, int count1, const WCHAR* string2, int count2);

// _wcsicmp: the C runtime's case-insensitive comparison, folding only A to Z.
int _wcsicmp(const WCHAR* string1, const WCHAR* string2);

}  // namespace hf::os
