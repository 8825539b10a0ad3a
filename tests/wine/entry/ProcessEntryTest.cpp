// What a process finds at its entry, from the system itself: its command line
// split by the real CommandLineToArgvW, held against the simulated
// hf::sim::SplitCommandLine on the kinds of line the native and end-to-end
// stories give the executable, and its module path.
#include <windows.h>

#include <shellapi.h>

#include "WineTestSupport.h"

#include "platform/sim/CommandLineSplit.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace hf::test {
namespace {

using Arguments = std::vector<std::u16string>;

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

// Each row: a command line and its arguments as Windows splits it.
std::pair<const char16_t*, Arguments> const kTable[] = {
    // Blanks and tabs separate, also after the program name.
    {u"hf.exe\t \t-a\t\t-b  ", {u"hf.exe", u"-a", u"-b"}},
    {u"hf.exe h\u00e9 \U0001d11e", {u"hf.exe", u"h\u00e9", u"\U0001d11e"}},
    // Quotes group and vanish.
    {u"hf.exe \"-asuser:OFFICE\\Jo Doe\" \"c\"d e\"f g\" \"\"",
     {u"hf.exe", u"-asuser:OFFICE\\Jo Doe", u"cd", u"ef g", u""}},
    // Backslashes are literal unless a quote follows: then 2n give n and
    // the quote groups, 2n+1 give n and a literal quote.
    {u"hf.exe o\\ne t\\\\wo \"C:\\Program Files\\\\\"", {u"hf.exe", u"o\\ne", u"t\\\\wo", u"C:\\Program Files\\"}},
    {u"hf.exe \\\"one \\\\\"two\" \\\\\\\"three \\\\\\\\\"four\" end",
     {u"hf.exe", u"\"one", u"\\two", u"\\\"three", u"\\\\four", u"end"}},
    {u"hf.exe \"a \\\"b\\\" c\" \"two\\\\\" \"three\\\\\\\" still\" end",
     {u"hf.exe", u"a \"b\" c", u"two\\", u"three\\\" still", u"end"}},
    // The program name has no escapes; a leading quote runs to the next quote.
    {u"\"C:\\Program Files\\hf.exe\" -pause", {u"C:\\Program Files\\hf.exe", u"-pause"}},
    {u"\"spaced exe\\\"arg1 arg2", {u"spaced exe\\", u"arg1", u"arg2"}},
    {u"hf\"file\"path arg1", {u"hf\"file\"path", u"arg1"}},
};

TEST(CommandLineSplit, SimulationAndSystemSplitAsWindowsDoes)
{
    for (auto const& [commandLine, arguments] : kTable) {
        SCOPED_TRACE(testing::PrintToString(std::u16string(commandLine)));
        EXPECT_EQ(sim::SplitCommandLine(commandLine, u"C:\\x.exe"), arguments);
        EXPECT_EQ(SystemSplit(commandLine), arguments);
    }
    // An empty line stands for the program itself: both give the module's path.
    EXPECT_EQ(SystemSplit(u""), Arguments{ModulePath()});
    EXPECT_EQ(sim::SplitCommandLine(u"", ModulePath()), Arguments{ModulePath()});
}

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
