// A hot folder's settings read from its Desktop.ini, and the path rules every
// table of the watcher relies on.
#include "EventReporter.h"
#include "SimTest.h"
#include "watcher/HotFolderSpec.h"
#include "watcher/HotFolderTree.h"
#include "watcher/PathRules.h"

#include <optional>
#include <tuple>

namespace hf::test {
namespace {

constexpr char16_t kDesktopIni[] = u"C:\\HF\\Invoices\\Desktop.ini";

struct IniCase {
    const char* story;
    std::optional<std::string> text;  // the file's bytes (UTF-8, the sim's ANSI code page); none: no file
    bool loads;
    std::string input, output, script;
    std::u16string path = kDesktopIni;  // as handed to the loader
    friend void PrintTo(IniCase const& c, std::ostream* os) { *os << c.story; }
};

std::string Ini(std::string const& body)
{
    return "[Tarnwick]\r\n" + body;
}

std::string const kLong = "D:\\" + std::string(297, 'a');         // 300 characters
std::string const kClimbing = "x\\..\\" + std::string(300, 'b');  // too long once joined
std::string const H = "C:\\HF\\Invoices\\";

// Each value is read in turn, relative values joined to the hot folder's own
// folder, and made canonical when it fits; the first missing or empty key ends
// the reading, and the file is then no hot folder. The loader reports nothing.
IniCase const kIniCases[] = {
    {"relative, parent-relative and absolute values", Ini("InputFolder=In\r\nOutputFolder=..\\Done\r\nScript=C:\\s.py"),
     true, H + "In", "C:\\HF\\Done", "C:\\s.py"},
    {"UNC, absolute and root-relative values, canonicalised too",
     Ini("InputFolder=\\\\srv\\sh\\In\r\nOutputFolder=D:\\J\\.\\O\\..\\D\r\nScript=\\a"), true, "\\\\srv\\sh\\In",
     "D:\\J\\D", "\\a"},
    {"dot is the hot folder, a trailing backslash stays", Ini("InputFolder=.\r\nOutputFolder=O\\\r\nScript=D:\\"), true,
     "C:\\HF\\Invoices", H + "O\\", "D:\\"},
    {"non-ASCII values", Ini("InputFolder=Eingänge\r\nOutputFolder=D:\\Größe\r\nScript=Ω.py"), true, H + "Eingänge",
     "D:\\Größe", H + "Ω.py"},
    {"broken lines around the settings",
     "garbage\r\n[Tarnwick]\r\nno equals "
     "sign\r\n[Unclosed\r\n=value\r\nInputFolder=In\r\n\x1a\r\nOutputFolder=O\nScript=s",
     true, H + "In", H + "O", H + "s"},
    {"the path is kept as handed over, its folder made canonical", Ini("InputFolder=In\r\nOutputFolder=O\r\nScript=s"),
     true, "c:\\hf\\INVOICES\\In", "c:\\hf\\INVOICES\\O", "c:\\hf\\INVOICES\\s", u"c:\\hf\\.\\INVOICES\\desktop.INI"},
    {"a value is cut to 259 characters", Ini("InputFolder=" + kLong + "\r\nOutputFolder=O\r\nScript=s"), true,
     kLong.substr(0, 259), H + "O", H + "s"},
    {"a joined value too long to canonicalise stays as joined",
     Ini("InputFolder=" + kClimbing + "\r\nOutputFolder=O\r\nScript=s"), true, H + kClimbing.substr(0, 259), H + "O",
     H + "s"},
    {"no Script", Ini("InputFolder=In\r\nOutputFolder=..\\Done"), false, H + "In", "C:\\HF\\Done", ""},
    {"an empty value counts as missing, Script is not read", Ini("InputFolder=In\r\nOutputFolder=  \r\nScript=s.py"),
     false, H + "In", "", ""},
    {"keys outside the section", "[Tarnwik]\r\nInputFolder=In\r\nOutputFolder=Out\r\nScript=s.py", false, "", "", ""},
    {"no file", std::nullopt, false, "", "", ""},
};

class DesktopIniRules : public SimTest, public ::testing::WithParamInterface<IniCase> {};

TEST_P(DesktopIniRules, ResolveEachSettingOrRejectTheFileSilently)
{
    IniCase const& c = GetParam();
    if (c.text) {
        world().files.WriteFile(kDesktopIni, *c.text);
    }
    EventReporter events(kCategoryUser);
    HotFolderSpec spec;
    EXPECT_EQ(LoadHotFolderSpec(events, c.path, spec), c.loads);
    EXPECT_EQ(spec.DesktopIniPath, c.path);
    EXPECT_EQ(U8(spec.InputFolder), c.input);
    EXPECT_EQ(U8(spec.OutputFolder), c.output);
    EXPECT_EQ(U8(spec.Script), c.script);
    EXPECT_TRUE(world().eventLog.Records().empty());
}

INSTANTIATE_TEST_SUITE_P(Table, DesktopIniRules, ::testing::ValuesIn(kIniCases));

// Joining adds one backslash only where none ends the first part, and tidies
// nothing. A root record names a settings change when it is a Desktop.ini (any
// case) one level below the root, leading backslashes aside. The tables order
// paths ignoring case in every script, whole strings taking part; the
// confirmation that follows a look-up folds only A to Z.
class PathRules : public SimTest {};

TEST_F(PathRules, JoinSettingsChangeAndOrder)
{
    std::tuple<const char16_t*, const char16_t*, const char*> const joins[] = {
        {u"C:\\A\\", u"b", "C:\\A\\b"}, {u"C:\\A", u"b", "C:\\A\\b"},     {u"", u"b", "b"},
        {u"C:\\A", u"", "C:\\A"},       {u"C:\\A", u"\\b", "C:\\A\\\\b"}, {u"C:\\A\\.", u"..\\b", "C:\\A\\.\\..\\b"}};
    for (auto const& [a, b, joined] : joins) {
        EXPECT_EQ(U8(JoinPath(a, b)), joined) << U8(a) << " + " << U8(b);
    }
    for (std::u16string const name :
         {u"Invoices\\Desktop.ini", u"Rechnungen Ä\\DESKTOP.INI", u"\\Invoices\\Desktop.ini"}) {
        EXPECT_TRUE(IsSettingsChange(name)) << U8(name);
    }
    for (std::u16string const name : {u"Desktop.ini", u"Invoices\\In\\Desktop.ini", u"Invoices\\xDesktop.ini",
                                      u"Invoices\\Desktop.ini\\", u"\\\\\\", u"\\Desktop.ini", u""}) {
        EXPECT_FALSE(IsSettingsChange(name)) << U8(name);
    }
    std::tuple<const char16_t*, const char16_t*, bool, bool, bool> const cases[] = {
        {u"C:\\Hot\\A", u"c:\\hot\\a", false, false, true},
        {u"C:\\Rechnungen\\Ä", u"C:\\Rechnungen\\ä", false, false, false},
        {u"C:\\a", u"C:\\a\\x", true, false, false},
        {u"C:\\a", u"C:\\AA", true, false, false},
    };
    for (auto const& [a, b, less, greater, iequals] : cases) {
        SCOPED_TRACE(U8(a) + " ~ " + U8(b));
        EXPECT_EQ(PathLess(a, b), less);
        EXPECT_EQ(PathLess(b, a), greater);
        EXPECT_EQ(PathIEquals(a, b), iequals);
    }
}

}  // namespace
}  // namespace hf::test
