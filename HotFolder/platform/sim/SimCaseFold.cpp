#include "platform/sim/SimCaseFold.h"

#include <algorithm>
#include <cstring>

namespace hf::sim {

namespace {

// Latin Extended-A pairs capital and small letters as neighbours; which of the
// two comes first changes twice in the block.
char16_t FoldLatinExtendedA(char16_t c)
{
    bool const capitalIsEven = (c <= 0x137) || (c >= 0x14A && c <= 0x177);
    bool const capitalIsOdd = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (capitalIsEven && (c & 1) == 1) {
        return static_cast<char16_t>(c - 1);
    }
    if (capitalIsOdd && (c & 1) == 0) {
        return static_cast<char16_t>(c - 1);
    }
    return c;
}

}  // namespace

char16_t FoldNonAscii(char16_t c)
{
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) {
        return static_cast<char16_t>(c - 0x20);
    }
    if (c == 0xFF) {
        return 0x178;
    }
    if (c >= 0x100 && c <= 0x17E && c != 0x130 && c != 0x131 && c != 0x138 && c != 0x149) {
        return FoldLatinExtendedA(c);
    }
    if (c == 0x3C2) {  // final sigma
        return 0x3A3;
    }
    if ((c >= 0x3B1 && c <= 0x3C1) || (c >= 0x3C3 && c <= 0x3CB)) {
        return static_cast<char16_t>(c - 0x20);
    }
    if (c >= 0x430 && c <= 0x44F) {
        return static_cast<char16_t>(c - 0x20);
    }
    if (c >= 0x450 && c <= 0x45F) {
        return static_cast<char16_t>(c - 0x50);
    }
    if (c >= 0xFF41 && c <= 0xFF5A) {
        return static_cast<char16_t>(c - 0x20);
    }
    return c;
}

std::u16string FoldCase(std::u16string_view text)
{
    std::u16string folded(text);
    for (char16_t& c : folded) {
        c = FoldCase(c);
    }
    return folded;
}

int CompareFolded(std::u16string_view a, std::u16string_view b)
{
    // Paths in one table share long prefixes; identical code units fold alike,
    // so the identical prefix is skipped a block at a time first.
    std::size_t const common = std::min(a.size(), b.size());
    std::size_t i = 0;
    constexpr std::size_t kBlock = 32;
    while (i + kBlock <= common && std::memcmp(a.data() + i, b.data() + i, kBlock * sizeof(char16_t)) == 0) {
        i += kBlock;
    }
    for (; i < common; ++i) {
        char16_t const x = FoldCase(a[i]);
        char16_t const y = FoldCase(b[i]);
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

}  // namespace hf::sim
