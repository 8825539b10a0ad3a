// Declared without <windows.h>, so that suites on the seam (with
// platform/Constants.h) can use it too.
#pragma once

namespace hf::test {

// True under Wine rather than Windows (ntdll exports wine_get_version).
bool RunningUnderWine();

}  // namespace hf::test
