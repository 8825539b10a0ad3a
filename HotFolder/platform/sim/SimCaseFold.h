// Upper-case folding for the simulated machine's names and linguistic
// comparisons. NTFS compares names through an up-case table that covers all of
// Unicode, and CompareStringW with NORM_IGNORECASE ignores case in every
// script; the sim folds the scripts that tests use (ASCII, Latin-1, Latin
// Extended-A, Greek, Cyrillic, full-width Latin), which keeps both rules total
// and deterministic.
#pragma once

#include <string>
#include <string_view>

namespace hf::sim {

// The upper-case form of a code unit beyond ASCII; unchanged when it has none.
char16_t FoldNonAscii(char16_t c);

// The code unit's upper-case form; unchanged when it has none.
inline char16_t FoldCase(char16_t c)
{
    if (c < 0x80) {
        return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 0x20) : c;
    }
    return FoldNonAscii(c);
}

// Every code unit folded.
std::u16string FoldCase(std::u16string_view text);

// Compares code unit by code unit after folding: <0, 0 or >0.
int CompareFolded(std::u16string_view a, std::u16string_view b);

}  // namespace hf::sim
