// The watcher's settings on the win32 backend: Desktop.ini read by the
// system's profile reader and resolved by its path functions, and the path
// order by its CompareStringW, against the rows the simulation answers.
#include "EventReporter.h"
#include "WineTestSupport.h"
#include "platform/Clock.h"
#include "platform/Constants.h"
#include "watcher/HotFolderSpec.h"
#include "watcher/HotFolderTree.h"
#include "watcher/PathRules.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

namespace hf {
namespace {

// A text as a file in UTF-16 (little-endian, as in memory here) with its byte order mark.
std::string Utf16File(std::u16string const& text)
{
    return "\xFF\xFE" + std::string(reinterpret_cast<char const*>(text.data()), text.size() * sizeof(char16_t));
}

// Each row: a Desktop.ini, whether it makes a hot folder, and its three
// values as resolved against the hot folder Invoices (absolute ones as they are).
TEST(DesktopIniOnTheSystem, TheSystemsProfileReaderAndPathFunctionsResolveDesktopIniAsTheSimDoes)
{
    struct {
        std::string text;
        bool loads;
        std::u16string input, output, script;
    } const cases[] = {
        {"[Tarnwick]\r\nInputFolder=In\r\nOutputFolder=..\\Done\r\nScript=D:\\s.py\r\n", true, u"Invoices\\In", u"Done",
         u"D:\\s.py"},
        {"[Tarnwick]\r\nInputFolder=In\r\nOutputFolder=Out\r\nScript=\\Scripts\\a.py\r\n", true, u"Invoices\\In",
         u"Invoices\\Out", u"\\Scripts\\a.py"},
        {"junk\r\n[Tarnwick]\r\nno equals\r\n[Unclosed\r\nInputFolder=In\r\nOutputFolder=Out\r\nScript=s\r\n", true,
         u"Invoices\\In", u"Invoices\\Out", u"Invoices\\s"},
        {"[Tarnwick]\r\nInputFolder=In\r\nScript=s.py\r\n", false, u"Invoices\\In", u"", u""},
        // UTF-16 with its byte order mark.
        {Utf16File(u"[Tarnwick]\r\nInputFolder=Eingänge\r\nOutputFolder=Δ\r\nScript=s.py\r\n"), true,
         u"Invoices\\Eingänge", u"Invoices\\Δ", u"Invoices\\s.py"},
        // A value cut to 259 characters and joined no longer fits a path buffer: it stays as joined.
        {"[Tarnwick]\r\nInputFolder=x\\..\\" + std::string(300, 'b') + "\r\nOutputFolder=Out\r\nScript=s.py\r\n", true,
         u"Invoices\\x\\..\\" + std::u16string(254, u'b'), u"Invoices\\Out", u"Invoices\\s.py"},
        // Climbing stops at the drive's root (the temporary folder lies on C:).
        {"[Tarnwick]\r\nInputFolder=" + std::string(R"(..\..\..\..\..\..\..\..\..\..\..\..\x)") +
             "\r\nOutputFolder=Out\r\nScript=s.py\r\n",
         true, u"C:\\x", u"Invoices\\Out", u"Invoices\\s.py"},
    };
    std::filesystem::path const folder =
        std::filesystem::temp_directory_path() / ("hf-watcher-" + std::to_string(os::GetTickCount()));
    std::filesystem::create_directories(folder / "Invoices");
    std::u16string const base = folder.u16string();
    EventReporter events(kCategoryUser);
    auto resolved = [&](std::u16string const& value) {
        return value.empty() || value[0] == u'\\' || value[1] == u':' ? value : JoinPath(base, value);
    };
    auto load = [&](std::string const& text) {
        std::ofstream(folder / "Invoices" / "Desktop.ini", std::ios::binary) << text;
        HotFolderSpec spec;
        bool const loads = LoadHotFolderSpec(events, JoinPath(base, u"Invoices\\Desktop.ini"), spec);
        return std::make_tuple(loads, spec.InputFolder, spec.OutputFolder, spec.Script);
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(load(c.text), std::make_tuple(c.loads, resolved(c.input), resolved(c.output), resolved(c.script)));
    }
    // Windows' PathCanonicalizeW removes a trailing "\."; Wine's keeps it.
    EXPECT_EQ(load("[Tarnwick]\r\nInputFolder=.\r\nOutputFolder=Out\r\nScript=s.py\r\n"),
              std::make_tuple(true, resolved(test::RunningUnderWine() ? u"Invoices\\." : u"Invoices"),
                              resolved(u"Invoices\\Out"), resolved(u"Invoices\\s.py")));
    std::filesystem::remove_all(folder);
}

// The linguistic order ignores case; the confirmation folds only A to Z.
TEST(PathRulesOnTheSystem, TheLinguisticOrderIgnoresCaseAndTheConfirmationFoldsOnlyAToZ)
{
    EXPECT_TRUE(PathIEquals(u"C:\\Hot\\A", u"c:\\hot\\a"));
    EXPECT_FALSE(PathLess(u"C:\\Ä", u"C:\\ä"));
    EXPECT_FALSE(PathLess(u"C:\\ä", u"C:\\Ä"));
    EXPECT_FALSE(PathIEquals(u"C:\\Ä", u"C:\\ä"));
    EXPECT_TRUE(PathLess(u"C:\\a", u"C:\\a\\x"));
    EXPECT_TRUE(IsSettingsChange(u"Invoices\\desktop.INI"));
    EXPECT_FALSE(IsSettingsChange(u"Invoices\\In\\Desktop.ini"));
}

}  // namespace
}  // namespace hf
