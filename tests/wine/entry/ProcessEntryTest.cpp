// What a process finds at its entry, from the system itself: its command line
// split by the real CommandLineToArgvW, held against the simulated
// hf::sim::SplitCommandLine on one table of what Windows gives, and its module
// path. Where Wine gives something else the check is skipped under Wine.
#include <windows.h>

#include <shellapi.h>

#include "WineTestSupport.h"

#include "platform/sim/CommandLineSplit.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace hf::test {
namespace {

using Arguments = std::vector<std::u16string>;

struct SplitCase {
    const char16_t* commandLine;
    Arguments arguments;  // as Windows splits the line
};

// Names the test of each row by its command line.
void PrintTo(SplitCase const& c, std::ostream* out)
{
    *out << testing::PrintToString(std::u16string(c.commandLine));
}

Arguments SystemSplit(std::u16string const& commandLine)
{
    Arguments arguments;
    int count = 0;
    LPWSTR* argv = CommandLineToArgvW(Wide(commandLine).c_str(), &count);
    for (int i = 0; argv != nullptr && i < count; ++i) {
        arguments.push_back(Utf16(argv[i]));
    }
    LocalFree(argv);
    return arguments;
}

std::u16string ModulePath()
{
    wchar_t path[MAX_PATH] = {};
    return Utf16(std::wstring(path, GetModuleFileNameW(nullptr, path, MAX_PATH)));
}

SplitCase const kTable[] = {
    // Blanks and tabs separate; other control characters belong to the argument.
    {u"hf.exe", {u"hf.exe"}},
    {u"hf.exe  \t -a\t\t-b  ", {u"hf.exe", u"-a", u"-b"}},
    {u"hf.exe arg=1 three\tfour\rfour\nfour ", {u"hf.exe", u"arg=1", u"three", u"four\rfour\nfour"}},
    {u"hf.exe 'a b` c\\ $d)", {u"hf.exe", u"'a", u"b`", u"c\\", u"$d)"}},
    {u"hf.exe h\u00e9 \U0001d11e", {u"hf.exe", u"h\u00e9", u"\U0001d11e"}},
    // Quotes group and vanish; an unclosed quote runs to the end.
    {u"hf.exe \"a b\" \"c\"d e\"f g\"", {u"hf.exe", u"a b", u"cd", u"ef g"}},
    {u"hf.exe \"\"", {u"hf.exe", u""}},
    {u"hf.exe a \"", {u"hf.exe", u"a", u""}},
    {u"hf.exe a \"unclosed  b", {u"hf.exe", u"a", u"unclosed  b"}},
    {u"hf.exe \"a\tb\"", {u"hf.exe", u"a\tb"}},
    // Backslashes are literal unless a quote follows: then 2n give n and
    // the quote groups, 2n+1 give n and a literal quote.
    {u"hf.exe o\\ne t\\\\wo \"C:\\Program Files\\\\\"", {u"hf.exe", u"o\\ne", u"t\\\\wo", u"C:\\Program Files\\"}},
    {u"hf.exe \\\"one \\\\\"two\" \\\\\\\"three \\\\\\\\\"four\" end",
     {u"hf.exe", u"\"one", u"\\two", u"\\\"three", u"\\\\four", u"end"}},
    {u"hf.exe \"one\\\" still\" \"two\\\\\" \"three\\\\\\\" still\" end",
     {u"hf.exe", u"one\" still", u"two\\", u"three\\\" still", u"end"}},
    // Doubled quotes: inside quotes a pair gives one quote and ends the
    // quoted part, so runs of three give one quote.
    {u"hf.exe two\"\"quotes next", {u"hf.exe", u"twoquotes", u"next"}},
    {u"hf.exe three\"\"\"quotes next", {u"hf.exe", u"three\"quotes", u"next"}},
    {u"hf.exe four\"\"\"\" quotes\" next", {u"hf.exe", u"four\" quotes", u"next"}},
    {u"hf.exe six\"\"\"\"\"\"quotes next", {u"hf.exe", u"six\"\"quotes", u"next"}},
    {u"hf.exe \"two\"\"quotes next", {u"hf.exe", u"two\"quotes", u"next"}},
    {u"hf.exe \"two\"\" next", {u"hf.exe", u"two\"", u"next"}},
    {u"hf.exe \"0 1\"\"\" 2", {u"hf.exe", u"0 1\" 2"}},
    {u"hf.exe \"the crazy \\\\\"\"\"\\\\\" quotes", {u"hf.exe", u"the crazy \\\"\\", u"quotes"}},
    // The program name has rules of its own: no escapes, a leading quote
    // runs to the next quote, otherwise it ends at the first character up
    // to U+0020, which is dropped (the rows that Wine splits otherwise are below).
    {u"\"C:\\Program Files\\hf.exe\" -pause", {u"C:\\Program Files\\hf.exe", u"-pause"}},
    {u"hf\"file\"path arg1", {u"hf\"file\"path", u"arg1"}},
    {u"C:\\dir\\ arg1", {u"C:\\dir\\", u"arg1"}},
    {u"\"hf.exe\"arg\" one\" two", {u"hf.exe", u"arg one", u"two"}},
    {u"\"spaced exe\\\"arg1 arg2", {u"spaced exe\\", u"arg1", u"arg2"}},
    {u"\"three\"\"\" arg2", {u"three", u"", u"arg2"}},
    {u" \"arg\"one two", {u"", u"argone", u"two"}},
    {u"\"hf.exe\"\r", {u"hf.exe", u"\r"}},
    {u"hf.exe\tx", {u"hf.exe", u"x"}},
};

TEST(CommandLineSplit, SimulationAndSystemSplitAsWindowsDoes)
{
    for (SplitCase const& c : kTable) {
        SCOPED_TRACE(testing::PrintToString(c));
        EXPECT_EQ(sim::SplitCommandLine(c.commandLine, u"C:\\x.exe"), c.arguments);
        EXPECT_EQ(SystemSplit(c.commandLine), c.arguments);
    }
    // An empty line stands for the program itself: both give the module's path.
    EXPECT_EQ(SystemSplit(u""), Arguments{ModulePath()});
    EXPECT_EQ(sim::SplitCommandLine(u"", ModulePath()), Arguments{ModulePath()});
}

// An unquoted program name ended by a control character other than a tab.
class ProgramNameEndedByAControlCharacter : public ::testing::TestWithParam<SplitCase> {};

TEST_P(ProgramNameEndedByAControlCharacter, SplitsAsWindowsDoes)
{
    SplitCase const& c = GetParam();
    EXPECT_EQ(sim::SplitCommandLine(c.commandLine, u"C:\\x.exe"), c.arguments);
    if (RunningUnderWine()) {
        GTEST_SKIP() << "Wine ends an unquoted program name at a blank or tab only; Windows ends it at any "
                        "character up to U+0020 and drops that character";
    }
    EXPECT_EQ(SystemSplit(c.commandLine), c.arguments);
}

INSTANTIATE_TEST_SUITE_P(Table, ProgramNameEndedByAControlCharacter,
                         ::testing::Values(SplitCase{u"hf.exe\r", {u"hf.exe"}},
                                           SplitCase{u"hf.exe\ra", {u"hf.exe", u"a"}},
                                           SplitCase{u"hf.exe\n-pause", {u"hf.exe", u"-pause"}}));

// A buffer too small for the path: Windows returns its size, sets
// ERROR_INSUFFICIENT_BUFFER and terminates the cut path.
TEST(ModulePath, ACutPathIsTerminatedAndReportedAsInsufficientBuffer)
{
    std::wstring small(8, L'#');
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameW(nullptr, small.data(), 8), 8u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    if (RunningUnderWine()) {
        GTEST_SKIP() << "Wine fills all 8 characters with the path and writes no terminator (as Windows XP did)";
    }
    EXPECT_EQ(Utf16(small), ModulePath().substr(0, 7) + u'\0');
}

}  // namespace
}  // namespace hf::test
