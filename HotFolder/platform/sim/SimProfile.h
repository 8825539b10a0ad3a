// The simulated GetPrivateProfileStringW's reading of an INI file.
#pragma once

#include <optional>
#include <string>

namespace hf::sim {

// The value of `key` in `section` of an INI file's bytes, or nothing when the
// section or the key is missing. Text with a UTF-16 little-endian byte-order
// mark is read as such; anything else as UTF-8 (the sim's ANSI code page).
// Section and key names match without regard to case; the blanks around the
// value and one pair of quotes (single or double) enclosing all of it are
// dropped. A line that is neither a section header nor has an "=" holds no
// value; only the first section of a name is read, and the first occurrence of
// the key in it wins (as Wine's reader does).
std::optional<std::u16string> ReadProfileString(std::string const& bytes, std::u16string const& section,
                                                std::u16string const& key);

}  // namespace hf::sim
