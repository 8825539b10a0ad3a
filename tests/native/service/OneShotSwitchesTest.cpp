// The one-shot parser reads the raw command line, the program's path included.
#include "service/OneShotSwitches.h"

#include "SimTest.h"

namespace hf::test {
namespace {

using S = OneShotSwitch;

struct Line {
    const char16_t* commandLine;
    OneShotSwitch expected;
};

TEST(OneShotSwitchesTest, FindsTheSwitchByTheRawLineRules)
{
    Line const lines[] = {
        // Each switch, after "-" or "/", in any case.
        {u"\"C:\\hf.exe\" -RegServer", S::RegServer},
        {u"\"C:\\hf.exe\" /UnregServer", S::UnregServer},
        {u"\"C:\\hf.exe\" -regserverperuser", S::RegServerPerUser},
        {u"\"C:\\hf.exe\" /UNREGSERVERPERUSER", S::UnregServerPerUser},
        {u"\"C:\\hf.exe\" -Service", S::Service},
        {u"\"C:\\hf.exe\" -regserver", S::RegServer},
        // Whole words only: the word ends at a blank, a tab or the line's end.
        {u"\"C:\\hf.exe\" -RegServer2", S::None},
        {u"\"C:\\hf.exe\" -RegServer\t-x", S::RegServer},
        {u"\"C:\\hf.exe\" -Services", S::None},
        {u"\"C:\\hf.exe\" \"-RegServer\"", S::None},
        {u"\"C:\\hf.exe\" - RegServer", S::None},
        // Anywhere in the line, the program's path too.
        {u"\"C:\\Tools -RegServer \\hf.exe\"", S::RegServer},
        {u"\"C:\\My-Tools\\hf.exe\" -pause", S::None},
        {u"C:\\a/Service b\\hf.exe", S::Service},
        {u"\"C:\\hf.exe\" -currentuser -UnregServer", S::UnregServer},
        // The server switches first, whatever stands before them; the first
        // position that matches one of them decides.
        {u"\"C:\\hf.exe\" -Service -RegServer", S::RegServer},
        {u"\"C:\\hf.exe\" -UnregServerPerUser -RegServer", S::UnregServerPerUser},
        {u"\"C:\\hf.exe\" /Service -Service", S::Service},
        {u"\"C:\\hf.exe\" -pause", S::None},
        {u"\"C:\\hf.exe\"", S::None},
        {u"", S::None},
    };
    for (auto const& line : lines) {
        EXPECT_EQ(FindOneShotSwitch(line.commandLine), line.expected) << U8(line.commandLine);
    }
}

}  // namespace
}  // namespace hf::test
