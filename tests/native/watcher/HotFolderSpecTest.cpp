// Reading a hot folder's Desktop.ini into its settings: which files make a hot
// folder, and how each value is found, cleaned and resolved.
#include "EventReporter.h"
#include "SimTest.h"
#include "watcher/HotFolderSpec.h"

namespace hf::test {
namespace {

constexpr char16_t kDesktopIni[] = u"C:\\HF\\Invoices\\Desktop.ini";

struct IniCase {
    const char* story;
    std::string text;  // the file's bytes (UTF-8 here: ASCII, or the sim's ANSI code page)
    bool loads;
    const char* input;
    const char* output;
    const char* script;
};

void PrintTo(IniCase const& c, std::ostream* os)
{
    *os << c.story;
}

std::string Ini(std::string const& body)
{
    return "[Tarnwick]\r\n" + body;
}

IniCase const kIniCases[] = {
    {"relative, parent-relative and absolute values",
     Ini("InputFolder=In\r\nOutputFolder=..\\Done\r\nScript=C:\\Scripts\\stamp.py\r\n"), true, "C:\\HF\\Invoices\\In",
     "C:\\HF\\Done", "C:\\Scripts\\stamp.py"},
    {"section and keys in lower case", "[tarnwick]\r\ninputfolder=In\r\noutputfolder=Out\r\nscript=s.py\r\n", true,
     "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"section and keys in upper case", "[TARNWICK]\r\nINPUTFOLDER=In\r\nOUTPUTFOLDER=Out\r\nSCRIPT=s.py\r\n", true,
     "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"blanks around keys and values", Ini("  InputFolder \t=   In  \t\r\nOutputFolder= Out\r\nScript =s.py \r\n"), true,
     "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"one pair of double or single quotes dropped",
     Ini("InputFolder=\"My In\"\r\nOutputFolder='My Out'\r\nScript=\"\"C:\\s.py\"\"\r\n"), true,
     "C:\\HF\\Invoices\\My In", "C:\\HF\\Invoices\\My Out", "C:\\HF\\Invoices\\\"C:\\s.py\""},
    {"quotes that do not enclose the whole value stay",
     Ini("InputFolder=\"a\" b\r\nOutputFolder=\"Out'\r\nScript=s\"\r\n"), true, "C:\\HF\\Invoices\\\"a\" b",
     "C:\\HF\\Invoices\\\"Out'", "C:\\HF\\Invoices\\s\""},
    {"blanks inside quotes stay", Ini("InputFolder=\" In \"\r\nOutputFolder=Out\r\nScript=s.py\r\n"), true,
     "C:\\HF\\Invoices\\ In ", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"absolute values stay apart from canonicalisation",
     Ini("InputFolder=D:\\In\r\nOutputFolder=D:\\Jobs\\.\\Out\\..\\Done\r\nScript=D:\\s.py\r\n"), true, "D:\\In",
     "D:\\Jobs\\Done", "D:\\s.py"},
    {"root-relative and UNC values are absolute",
     Ini("InputFolder=\\\\server\\share\\In\r\nOutputFolder=\\Out\r\nScript=\\Scripts\\a.py\r\n"), true,
     "\\\\server\\share\\In", "\\Out", "\\Scripts\\a.py"},
    {"dot is the hot folder itself", Ini("InputFolder=.\r\nOutputFolder=.\\Out\r\nScript=s.py\r\n"), true,
     "C:\\HF\\Invoices", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"dot-dot climbs, never above the drive",
     Ini("InputFolder=..\\..\\x\r\nOutputFolder=..\\..\\..\\..\\y\r\nScript=a\\..\\s.py\r\n"), true, "C:\\x", "C:\\y",
     "C:\\HF\\Invoices\\s.py"},
    {"a trailing backslash stays", Ini("InputFolder=In\\\r\nOutputFolder=D:\\\r\nScript=s.py\r\n"), true,
     "C:\\HF\\Invoices\\In\\", "D:\\", "C:\\HF\\Invoices\\s.py"},
    {"other sections and keys are ignored",
     "[.ShellClassInfo]\r\nInputFolder=Wrong\r\n[Tarnwick]\r\nInputFolder=In\r\nColour=red\r\nOutputFolder=Out\r\n"
     "Script=s.py\r\n[Other]\r\nScript=wrong.py\r\n",
     true, "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"only the first Tarnwick section is read",
     "[Tarnwick]\r\nInputFolder=In\r\nOutputFolder=Out\r\n[Other]\r\n[Tarnwick]\r\nScript=s.py\r\n", false,
     "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", ""},
    {"section names are matched without their blanks and what follows the bracket",
     "[ Tarnwick ] comment\r\nInputFolder=In\r\nOutputFolder=Out\r\nScript=s.py\r\n[Tarnwick]]\r\nScript=x\r\n", true,
     "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"an equals sign inside a value stays", Ini("InputFolder=a=b\r\nOutputFolder=Out\r\nScript=s.py\r\n"), true,
     "C:\\HF\\Invoices\\a=b", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"a quoted key name is another key", Ini("\"InputFolder\"=In\r\nOutputFolder=Out\r\nScript=s.py\r\n"), false, "",
     "", ""},
    {"the first of two equal keys wins",
     Ini("InputFolder=First\r\nInputFolder=Second\r\nOutputFolder=Out\r\nScript=s\r\n"), true,
     "C:\\HF\\Invoices\\First", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s"},
    {"broken lines around the settings",
     "garbage before any section\r\n[Tarnwick]\r\nno equals sign\r\n[Unclosed\r\n=value without key\r\n"
     "InputFolder=In\r\n\r\n   \r\n;comment=x\r\nOutputFolder=Out\r\n\x1a\r\nScript=s.py",
     true, "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"LF line ends", "[Tarnwick]\nInputFolder=In\nOutputFolder=Out\nScript=s.py\n", true, "C:\\HF\\Invoices\\In",
     "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"CR line ends", "[Tarnwick]\rInputFolder=In\rOutputFolder=Out\rScript=s.py\r", true, "C:\\HF\\Invoices\\In",
     "C:\\HF\\Invoices\\Out", "C:\\HF\\Invoices\\s.py"},
    {"non-ASCII values", Ini("InputFolder=Eingänge\r\nOutputFolder=D:\\Ausgänge\\Größe\r\nScript=Skript-Ω.py\r\n"),
     true, "C:\\HF\\Invoices\\Eingänge", "D:\\Ausgänge\\Größe", "C:\\HF\\Invoices\\Skript-Ω.py"},
    {"no InputFolder: the later keys are not read", Ini("OutputFolder=Out\r\nScript=s.py\r\n"), false, "", "", ""},
    {"no OutputFolder: InputFolder is resolved, Script not read", Ini("InputFolder=In\r\nScript=s.py\r\n"), false,
     "C:\\HF\\Invoices\\In", "", ""},
    {"no Script: the first two are resolved", Ini("InputFolder=In\r\nOutputFolder=..\\Done\r\n"), false,
     "C:\\HF\\Invoices\\In", "C:\\HF\\Done", ""},
    {"an empty value counts as missing", Ini("InputFolder=\r\nOutputFolder=Out\r\nScript=s.py\r\n"), false, "", "", ""},
    {"blanks alone count as missing", Ini("InputFolder=In\r\nOutputFolder=   \r\nScript=s.py\r\n"), false,
     "C:\\HF\\Invoices\\In", "", ""},
    {"empty quotes count as missing", Ini("InputFolder=In\r\nOutputFolder=Out\r\nScript=\"\"\r\n"), false,
     "C:\\HF\\Invoices\\In", "C:\\HF\\Invoices\\Out", ""},
    {"a key without a value counts as missing", Ini("InputFolder\r\nOutputFolder=Out\r\nScript=s.py\r\n"), false, "",
     "", ""},
    {"the keys outside the Tarnwick section", "[Tarnwik]\r\nInputFolder=In\r\nOutputFolder=Out\r\nScript=s.py\r\n",
     false, "", "", ""},
    {"the keys before any section", "InputFolder=In\r\nOutputFolder=Out\r\nScript=s.py\r\n[Tarnwick]\r\n", false, "",
     "", ""},
    {"an empty file", "", false, "", "", ""},
};

class DesktopIniRules : public SimTest, public ::testing::WithParamInterface<IniCase> {};

TEST_P(DesktopIniRules, ResolveEachSettingOrRejectTheFileSilently)
{
    IniCase const& c = GetParam();
    world().files.WriteFile(kDesktopIni, c.text);
    EventReporter events(kCategoryUser);
    HotFolderSpec spec;

    EXPECT_EQ(LoadHotFolderSpec(events, kDesktopIni, spec), c.loads);

    EXPECT_EQ(U8(spec.DesktopIniPath), U8(kDesktopIni));
    EXPECT_EQ(U8(spec.InputFolder), c.input);
    EXPECT_EQ(U8(spec.OutputFolder), c.output);
    EXPECT_EQ(U8(spec.Script), c.script);
    EXPECT_TRUE(world().eventLog.Records().empty()) << "the loader reports nothing";
}

INSTANTIATE_TEST_SUITE_P(Table, DesktopIniRules, ::testing::ValuesIn(kIniCases));

class HotFolderSpecTest : public SimTest {
protected:
    bool Load(std::u16string const& path, HotFolderSpec& spec) { return LoadHotFolderSpec(events, path, spec); }
    EventReporter events{kCategoryUser};
};

TEST_F(HotFolderSpecTest, AMissingFileIsSilentlyNoHotFolder)
{
    HotFolderSpec spec;
    EXPECT_FALSE(Load(u"C:\\HF\\Gone\\Desktop.ini", spec));
    EXPECT_EQ(U8(spec.DesktopIniPath), "C:\\HF\\Gone\\Desktop.ini");
    EXPECT_TRUE(spec.InputFolder.empty());
    EXPECT_TRUE(world().eventLog.Records().empty());
}

TEST_F(HotFolderSpecTest, TheDesktopIniPathIsKeptAsHandedOverNotCanonicalised)
{
    world().files.WriteFile(kDesktopIni, Ini("InputFolder=In\r\nOutputFolder=Out\r\nScript=s.py\r\n"));
    HotFolderSpec spec;
    std::u16string const spelled = u"c:\\hf\\.\\INVOICES\\desktop.INI";
    ASSERT_TRUE(Load(spelled, spec));
    EXPECT_EQ(U8(spec.DesktopIniPath), U8(spelled));
    // The base directory is the handed-over path less its last component; canonicalisation tidies the rest.
    EXPECT_EQ(U8(spec.InputFolder), "c:\\hf\\INVOICES\\In");
}

TEST_F(HotFolderSpecTest, AUnicodeDesktopIniInANonAsciiHotFolderIsRead)
{
    std::u16string const path = u"C:\\HF\\Rechnungen Ä\\Desktop.ini";
    world().files.WriteUnicodeFile(path, u"[Tarnwick]\r\nInputFolder=Eingänge\r\nOutputFolder=Δ\r\nScript=s.py\r\n");
    HotFolderSpec spec;
    ASSERT_TRUE(Load(path, spec));
    EXPECT_EQ(U8(spec.InputFolder), "C:\\HF\\Rechnungen Ä\\Eingänge");
    EXPECT_EQ(U8(spec.OutputFolder), "C:\\HF\\Rechnungen Ä\\Δ");
}

TEST_F(HotFolderSpecTest, AValueIsCutTo259CharactersBeforeItIsResolved)
{
    std::string const longFolder = "D:\\" + std::string(297, 'a');  // 300 characters
    world().files.WriteFile(kDesktopIni, Ini("InputFolder=" + longFolder + "\r\nOutputFolder=Out\r\nScript=s.py\r\n"));
    HotFolderSpec spec;
    ASSERT_TRUE(Load(kDesktopIni, spec));
    EXPECT_EQ(spec.InputFolder.size(), 259u);
    EXPECT_EQ(U8(spec.InputFolder), longFolder.substr(0, 259));
}

TEST_F(HotFolderSpecTest, AJoinedValueTooLongToCanonicaliseStaysAsJoined)
{
    // 259 characters survive the cut; joined to the hot folder they no longer fit
    // in a path buffer, so canonicalisation fails and the ".." stays.
    std::string const value = "x\\..\\" + std::string(300, 'b');
    world().files.WriteFile(kDesktopIni, Ini("InputFolder=" + value + "\r\nOutputFolder=Out\r\nScript=s.py\r\n"));
    HotFolderSpec spec;
    ASSERT_TRUE(Load(kDesktopIni, spec));
    EXPECT_EQ(U8(spec.InputFolder), "C:\\HF\\Invoices\\" + value.substr(0, 259));
    EXPECT_EQ(U8(spec.OutputFolder), "C:\\HF\\Invoices\\Out");
}

TEST_F(HotFolderSpecTest, AProbeSpecHoldsOnlyTheFilesDirectory)
{
    HotFolderSpecPtr const probe = MakeProbeSpec(u"C:\\HF\\In\\report.pdf");
    ASSERT_TRUE(probe);
    EXPECT_EQ(U8(probe->InputFolder), "C:\\HF\\In");
    EXPECT_TRUE(probe->DesktopIniPath.empty());
    EXPECT_TRUE(probe->OutputFolder.empty());
    EXPECT_TRUE(probe->Script.empty());
    EXPECT_EQ(U8(MakeProbeSpec(u"C:\\report.pdf")->InputFolder), "C:\\");
    EXPECT_EQ(U8(MakeProbeSpec(u"C:\\HF\\In\\Sub\\")->InputFolder), "C:\\HF\\In\\Sub");
}

}  // namespace
}  // namespace hf::test
