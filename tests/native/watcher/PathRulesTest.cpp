// The path rules every table of the watcher relies on: joining, the
// case-insensitive order and its confirmation, and the shell path functions
// as the simulated machine reproduces them.
#include "SimTest.h"
#include "platform/Files.h"
#include "platform/Paths.h"
#include "watcher/HotFolderTree.h"
#include "watcher/PathRules.h"

#include <algorithm>

namespace hf::test {
namespace {

TEST(JoinPath, AddsOneBackslashOnlyWhenNeededAndNormalisesNothing)
{
    struct {
        const char16_t* a;
        const char16_t* b;
        const char* joined;
    } const cases[] = {
        {u"C:\\A\\", u"b", "C:\\A\\b"},
        {u"C:\\A", u"b", "C:\\A\\b"},
        {u"", u"b", "b"},
        {u"C:\\A", u"", "C:\\A"},
        {u"", u"", ""},
        {u"C:\\A", u"\\b", "C:\\A\\\\b"},
        {u"C:\\A\\", u"\\b", "C:\\A\\\\b"},
        {u"C:\\A\\.", u"..\\b", "C:\\A\\.\\..\\b"},
        {u"C:", u"b", "C:\\b"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(U8(JoinPath(c.a, c.b)), c.joined) << U8(c.a) << " + " << U8(c.b);
    }
}

class PathOrderTest : public SimTest {};

TEST_F(PathOrderTest, PathLessIgnoresCaseInEveryScriptButPathIEqualsFoldsOnlyAToZ)
{
    EXPECT_FALSE(PathLess(u"C:\\Hot\\A", u"c:\\hot\\a"));
    EXPECT_FALSE(PathLess(u"c:\\hot\\a", u"C:\\Hot\\A"));
    EXPECT_TRUE(PathIEquals(u"C:\\Hot\\A", u"c:\\hot\\a"));

    // One key for the tables, two different paths for the confirmation.
    EXPECT_FALSE(PathLess(u"C:\\Rechnungen\\Ä", u"C:\\Rechnungen\\ä"));
    EXPECT_FALSE(PathLess(u"C:\\Rechnungen\\ä", u"C:\\Rechnungen\\Ä"));
    EXPECT_FALSE(PathIEquals(u"C:\\Rechnungen\\Ä", u"C:\\Rechnungen\\ä"));
    EXPECT_FALSE(PathIEquals(u"C:\\Счета", u"C:\\счета"));
    EXPECT_FALSE(PathLess(u"C:\\Счета", u"C:\\счета"));
}

TEST_F(PathOrderTest, PathLessIsATotalOrderOverWholeStrings)
{
    std::vector<std::u16string> paths = {u"C:\\b",  u"C:\\A",   u"C:\\a\\x", u"C:\\a", u"C:\\Ä",  u"C:\\a b",
                                         u"C:\\aa", u"D:\\",    u"C:\\",     u"c:\\B", u"C:\\ω",  u"C:\\a\\",
                                         u"",       u"C:\\a-b", u"C:\\a_b",  u"C:\\1", u"C:\\Ω1", u"C:\\z"};
    std::stable_sort(paths.begin(), paths.end(), PathLess);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        EXPECT_FALSE(PathLess(paths[i], paths[i])) << "irreflexive: " << U8(paths[i]);
        for (std::size_t j = i + 1; j < paths.size(); ++j) {
            EXPECT_FALSE(PathLess(paths[j], paths[i])) << U8(paths[j]) << " sorts after " << U8(paths[i]);
            bool const equivalent = !PathLess(paths[i], paths[j]);
            if (equivalent) {
                EXPECT_EQ(U8(AsciiUpper(paths[i])).size(), U8(AsciiUpper(paths[j])).size())
                    << "only case makes paths equivalent: " << U8(paths[i]) << " ~ " << U8(paths[j]);
            }
        }
    }
    // A prefix comes first: the whole strings take part.
    EXPECT_TRUE(PathLess(u"C:\\a", u"C:\\a\\x"));
    EXPECT_TRUE(PathLess(u"C:\\a", u"C:\\aa"));
}

TEST_F(PathOrderTest, CompareStringWCountsLengthsExplicitly)
{
    // Counted strings need no terminator, and an embedded one takes part.
    char16_t const withNul[] = {u'a', 0, u'b'};
    EXPECT_EQ(os::CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, withNul, 3, u"a", 1), CSTR_GREATER_THAN);
    EXPECT_EQ(os::CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, u"ABC", -1, u"abc", 3), CSTR_EQUAL);
    EXPECT_EQ(os::CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, u"abc", 2, u"ABD", 2), CSTR_EQUAL);
    EXPECT_EQ(os::CompareStringW(LOCALE_INVARIANT, 0, u"abc", -1, u"ABC", -1), CSTR_LESS_THAN);
    EXPECT_EQ(os::CompareStringW(LOCALE_INVARIANT, 0x80000000u, u"a", -1, u"b", -1), 0);
}

TEST(CountBackslashes, TrimsTrailingThenLeadingBackslashesAndCountsTheRest)
{
    struct {
        const char16_t* text;
        std::size_t count;
    } const cases[] = {
        {u"Invoices\\Desktop.ini", 1},
        {u"Desktop.ini", 0},
        {u"a\\b\\c", 2},
        {u"\\\\a\\b\\\\", 1},
        {u"\\\\\\", 0},
        {u"", 0},
        {u"a\\\\b", 2},
        {u"\\Invoices\\Desktop.ini\\", 1},
        {u"Invoices\\In\\Desktop.ini", 2},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(CountBackslashes(c.text), c.count) << U8(c.text);
    }
}

class SettingsChangeTest : public SimTest {};

TEST_F(SettingsChangeTest, OnlyADesktopIniOneLevelBelowTheRootIsASettingsChange)
{
    struct {
        const char16_t* name;
        bool isSettings;
    } const cases[] = {
        {u"Invoices\\Desktop.ini", true},
        {u"Invoices\\desktop.ini", true},
        {u"Invoices\\DESKTOP.INI", true},
        {u"Rechnungen Ä\\Desktop.ini", true},
        {u"Desktop.ini", false},
        {u"Invoices\\In\\Desktop.ini", false},
        {u"Invoices\\Desktop.ini.bak", false},
        {u"Invoices\\xDesktop.ini", false},
        {u"Invoices\\report.pdf", false},
        {u"\\Invoices\\Desktop.ini", true},  // the count trims leading backslashes, the match needs none
        {u"Invoices\\Desktop.ini\\", false},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(IsSettingsChange(c.name), c.isSettings) << U8(c.name);
    }
}

// The shell path functions of the simulated machine, with Windows' results.
class ShellPathsTest : public SimTest {
protected:
    static std::string Canonical(std::u16string const& path)
    {
        WCHAR out[os::kMaxPath] = {};
        return os::PathCanonicalizeW(out, path.c_str()) ? U8(out) : "<fails>";
    }
    static std::string WithoutFileSpec(std::u16string path)
    {
        BOOL const removed = os::PathRemoveFileSpecW(&path[0]);
        return U8(path.c_str()) + (removed ? "" : " (unchanged)");
    }
};

TEST_F(ShellPathsTest, PathCanonicalizeWRemovesDotsAndLetsDotDotClimb)
{
    struct {
        const char16_t* path;
        const char* canonical;
    } const cases[] = {
        {u"C:\\a\\b\\..\\c", "C:\\a\\c"},
        {u"C:\\a\\.\\b", "C:\\a\\b"},
        {u"C:\\a\\b\\.", "C:\\a\\b"},
        {u"C:\\a\\b\\.\\", "C:\\a\\b\\"},
        {u"C:\\a\\..", "C:\\"},
        {u"C:\\..\\..\\x", "C:\\x"},
        {u"C:\\a\\b\\", "C:\\a\\b\\"},
        {u"C:\\a\\...\\b", "C:\\a\\...\\b"},
        {u"C:\\a\\..b\\c", "C:\\a\\..b\\c"},
        {u"\\\\server\\share\\x\\..\\y", "\\\\server\\share\\y"},
        {u"\\Scripts\\.\\a.py", "\\Scripts\\a.py"},
        {u"C:", "C:\\"},
        {u"", "\\"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(Canonical(c.path), c.canonical) << U8(c.path);
    }
    EXPECT_EQ(Canonical(u"C:\\" + std::u16string(256, u'a')), "C:\\" + std::string(256, 'a'));
    EXPECT_EQ(Canonical(u"C:\\" + std::u16string(257, u'a')), "<fails>");
}

TEST_F(ShellPathsTest, PathRemoveFileSpecWCutsTheLastComponentButNotTheRoot)
{
    struct {
        const char16_t* path;
        const char* result;
    } const cases[] = {
        {u"C:\\a\\b.pdf", "C:\\a"},
        {u"C:\\a\\", "C:\\a"},
        {u"C:\\a", "C:\\"},
        {u"C:\\", "C:\\ (unchanged)"},
        {u"\\a", "\\"},
        {u"a", ""},
        {u"\\\\server\\share", "\\\\server"},
        {u"C:\\Users\\Ü\\ß.txt", "C:\\Users\\Ü"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(WithoutFileSpec(c.path), c.result) << U8(c.path);
    }
}

TEST_F(ShellPathsTest, PathIsRelativeWAndPathMatchSpecW)
{
    EXPECT_TRUE(os::PathIsRelativeW(u"In"));
    EXPECT_TRUE(os::PathIsRelativeW(u"..\\In"));
    EXPECT_TRUE(os::PathIsRelativeW(u""));
    EXPECT_FALSE(os::PathIsRelativeW(u"\\Scripts"));
    EXPECT_FALSE(os::PathIsRelativeW(u"\\\\server\\share"));
    EXPECT_FALSE(os::PathIsRelativeW(u"D:In"));
    EXPECT_FALSE(os::PathIsRelativeW(u"D:\\In"));

    EXPECT_TRUE(os::PathMatchSpecW(u"Invoices\\DESKTOP.ini", u"*\\Desktop.ini"));
    EXPECT_TRUE(os::PathMatchSpecW(u"a.pdf", u"*.txt; *.pdf"));
    EXPECT_TRUE(os::PathMatchSpecW(u"abc", u"a?c"));
    EXPECT_TRUE(os::PathMatchSpecW(u"anything", u"*.*"));
    EXPECT_FALSE(os::PathMatchSpecW(u"Desktop.ini", u"*\\Desktop.ini"));
    EXPECT_FALSE(os::PathMatchSpecW(u"ac", u"a?c"));
}

TEST_F(ShellPathsTest, WcsicmpFoldsOnlyAsciiLettersToLowerCase)
{
    EXPECT_EQ(os::_wcsicmp(u"ABC", u"abc"), 0);
    EXPECT_NE(os::_wcsicmp(u"Ä", u"ä"), 0);
    EXPECT_LT(os::_wcsicmp(u"_", u"A"), 0) << "letters compare as lower case, which sorts after '_'";
    EXPECT_LT(os::_wcsicmp(u"ab", u"ABC"), 0);
}

}  // namespace
}  // namespace hf::test
