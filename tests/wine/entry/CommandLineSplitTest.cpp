// The simulated machine splits command lines with hf::sim::SplitCommandLine.
// Here the real CommandLineToArgvW splits the same table of lines, so the
// native suites' switch tests stand on Windows' own rules. The expected
// arguments are what Windows gives (the cases of Wine's and ReactOS's
// CommandLineToArgvW conformance tests, which are checked on Windows); where
// Wine's own CommandLineToArgvW gives something else, the row says so and the
// comparison with the system is skipped under Wine.
#include <windows.h>
// After windows.h, which it builds on.
#include <shellapi.h>

#include "WideText.h"
#include "WineTestSupport.h"

#include "platform/sim/CommandLineSplit.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace hf::test {
namespace {

struct SplitCase {
    const char16_t* commandLine;
    std::vector<std::u16string> arguments;  // as Windows splits the line
    const char* wineDiffers = nullptr;      // why Wine's CommandLineToArgvW gives something else
};

void PrintTo(SplitCase const& c, std::ostream* out)
{
    *out << '"' << ToUtf8(c.commandLine) << '"';
}

std::vector<std::u16string> SystemSplit(std::u16string const& commandLine)
{
    std::vector<std::u16string> arguments;
    int count = 0;
    LPWSTR* argv = CommandLineToArgvW(Wide(commandLine).c_str(), &count);
    if (argv == nullptr) {
        ADD_FAILURE() << "CommandLineToArgvW failed with " << GetLastError();
        return arguments;
    }
    for (int i = 0; i < count; ++i) {
        arguments.push_back(Utf16(argv[i]));
    }
    LocalFree(argv);
    return arguments;
}

std::u16string ModulePath()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return Utf16(path);
}

std::vector<std::string> Readable(std::vector<std::u16string> const& arguments)
{
    std::vector<std::string> out;
    for (auto const& argument : arguments) {
        out.push_back(ToUtf8(argument));
    }
    return out;
}

class CommandLineSplit : public ::testing::TestWithParam<SplitCase> {};

TEST_P(CommandLineSplit, SimulationSplitsAsWindowsDoes)
{
    SplitCase const& c = GetParam();
    EXPECT_EQ(Readable(sim::SplitCommandLine(c.commandLine, u"C:\\x.exe")), Readable(c.arguments));
}

TEST_P(CommandLineSplit, SystemSplitsAsTheTableSays)
{
    SplitCase const& c = GetParam();
    if (c.wineDiffers != nullptr && RunningUnderWine()) {
        GTEST_SKIP() << "Wine differs from Windows here: " << c.wineDiffers;
    }
    EXPECT_EQ(Readable(SystemSplit(c.commandLine)), Readable(c.arguments));
}

// An empty line stands for the program itself: both give the module's path.
TEST(CommandLineSplitEmpty, GivesTheModulePath)
{
    std::u16string const modulePath = ModulePath();
    EXPECT_EQ(Readable(SystemSplit(u"")), Readable({modulePath}));
    EXPECT_EQ(Readable(sim::SplitCommandLine(u"", modulePath)), Readable({modulePath}));
}

const char kWineProgramNameEndsAtBlankOnly[] =
    "Wine ends an unquoted program name at a blank or tab only; Windows ends it at any character up to U+0020 "
    "and drops that character";

INSTANTIATE_TEST_SUITE_P(
    Table, CommandLineSplit,
    ::testing::Values(
        // Blanks and tabs separate; other control characters belong to the argument.
        SplitCase{u"hf.exe", {u"hf.exe"}}, SplitCase{u"hf.exe -startservice", {u"hf.exe", u"-startservice"}},
        SplitCase{u"hf.exe  \t -a\t\t-b  ", {u"hf.exe", u"-a", u"-b"}},
        SplitCase{u"hf.exe arg=1 three\tfour\rfour\nfour ", {u"hf.exe", u"arg=1", u"three", u"four\rfour\nfour"}},
        SplitCase{u"hf.exe 'a b` c\\ $d)", {u"hf.exe", u"'a", u"b`", u"c\\", u"$d)"}},
        SplitCase{u"hf.exe %TMP% ^& a|b", {u"hf.exe", u"%TMP%", u"^&", u"a|b"}},
        SplitCase{u"hf.exe -asuser:DOMAIN\\name", {u"hf.exe", u"-asuser:DOMAIN\\name"}},
        SplitCase{u"hf.exe h\u00e9 \U0001d11e", {u"hf.exe", u"h\u00e9", u"\U0001d11e"}},
        // Quotes group and vanish; an unclosed quote runs to the end.
        SplitCase{u"hf.exe \"a b\" \"c\"d e\"f g\"", {u"hf.exe", u"a b", u"cd", u"ef g"}},
        SplitCase{u"hf.exe \"\"", {u"hf.exe", u""}}, SplitCase{u"hf.exe a \"", {u"hf.exe", u"a", u""}},
        SplitCase{u"hf.exe a \"unclosed  b", {u"hf.exe", u"a", u"unclosed  b"}},
        SplitCase{u"hf.exe \"a\tb\"", {u"hf.exe", u"a\tb"}},
        // Backslashes are literal unless a quote follows: then 2n give n and
        // the quote groups, 2n+1 give n and a literal quote.
        SplitCase{u"hf.exe o\\ne t\\\\wo \"C:\\Program Files\\\\\"",
                  {u"hf.exe", u"o\\ne", u"t\\\\wo", u"C:\\Program Files\\"}},
        SplitCase{u"hf.exe \\\"one \\\\\"two\" \\\\\\\"three \\\\\\\\\"four\" end",
                  {u"hf.exe", u"\"one", u"\\two", u"\\\"three", u"\\\\four", u"end"}},
        SplitCase{u"hf.exe \"one\\\" still\" \"two\\\\\" \"three\\\\\\\" still\" end",
                  {u"hf.exe", u"one\" still", u"two\\", u"three\\\" still", u"end"}},
        // Doubled quotes: inside quotes a pair gives one quote and ends the
        // quoted part, so runs of three give one quote.
        SplitCase{u"hf.exe two\"\"quotes next", {u"hf.exe", u"twoquotes", u"next"}},
        SplitCase{u"hf.exe three\"\"\"quotes next", {u"hf.exe", u"three\"quotes", u"next"}},
        SplitCase{u"hf.exe four\"\"\"\" quotes\" next", {u"hf.exe", u"four\" quotes", u"next"}},
        SplitCase{u"hf.exe six\"\"\"\"\"\"quotes next", {u"hf.exe", u"six\"\"quotes", u"next"}},
        SplitCase{u"hf.exe \"two\"\"quotes next", {u"hf.exe", u"two\"quotes", u"next"}},
        SplitCase{u"hf.exe \"two\"\" next", {u"hf.exe", u"two\"", u"next"}},
        SplitCase{u"hf.exe \"0 1\"\"\" 2", {u"hf.exe", u"0 1\" 2"}},
        SplitCase{u"hf.exe \"the crazy \\\\\"\"\"\\\\\" quotes", {u"hf.exe", u"the crazy \\\"\\", u"quotes"}},
        // The program name has rules of its own: no escapes, a leading quote
        // runs to the next quote, otherwise it ends at the first character up
        // to U+0020, which is dropped.
        SplitCase{u"\"C:\\Program Files\\hf.exe\" -pause", {u"C:\\Program Files\\hf.exe", u"-pause"}},
        SplitCase{u"hf\"file\"path arg1", {u"hf\"file\"path", u"arg1"}},
        SplitCase{u"C:\\dir\\ arg1", {u"C:\\dir\\", u"arg1"}},
        SplitCase{u"\"hf.exe\"arg\" one\" two", {u"hf.exe", u"arg one", u"two"}},
        SplitCase{u"\"spaced exe\\\"arg1 arg2", {u"spaced exe\\", u"arg1", u"arg2"}},
        SplitCase{u"\"three\"\"\" arg2", {u"three", u"", u"arg2"}},
        SplitCase{u" \"arg\"one two", {u"", u"argone", u"two"}}, SplitCase{u"\"hf.exe\"\r", {u"hf.exe", u"\r"}},
        SplitCase{u"hf.exe\tx", {u"hf.exe", u"x"}},
        SplitCase{u"hf.exe\r", {u"hf.exe"}, kWineProgramNameEndsAtBlankOnly},
        SplitCase{u"hf.exe\ra", {u"hf.exe", u"a"}, kWineProgramNameEndsAtBlankOnly},
        SplitCase{u"hf.exe\n-pause", {u"hf.exe", u"-pause"}, kWineProgramNameEndsAtBlankOnly}));

}  // namespace
}  // namespace hf::test
