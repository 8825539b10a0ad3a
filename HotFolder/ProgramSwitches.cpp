#include "ProgramSwitches.h"

#include "WideText.h"

#include <string_view>

namespace hf {

namespace {

bool StartsWithKeyword(std::u16string_view text, std::u16string_view keyword)
{
    return text.size() >= keyword.size() && EqualsIgnoringAsciiCase(text.substr(0, keyword.size()), keyword);
}

}  // namespace

ProgramSwitches ScanProgramSwitches(std::vector<std::u16string> const& arguments)
{
    ProgramSwitches switches;
    for (auto const& argument : arguments) {
        if (argument.empty() || (argument[0] != u'-' && argument[0] != u'/')) {
            continue;
        }
        std::u16string_view const text = std::u16string_view(argument).substr(1);
        if (StartsWithKeyword(text, u"asuser:")) {
            switches.asUserName = std::u16string(text.substr(7));
        } else if (StartsWithKeyword(text, u"currentuser")) {
            switches.runWatcher = true;
        } else if (StartsWithKeyword(text, u"pause")) {
            // Accepted and ignored; it only keeps the argument from matching below.
        } else if (StartsWithKeyword(text, u"installuser")) {
            switches.runWatcher = true;
            switches.installUser = true;
        } else if (StartsWithKeyword(text, u"asservice")) {
            switches.runWatcher = true;
            switches.asService = true;
        } else if (StartsWithKeyword(text, u"startservice")) {
            // Wins over everything before and after it: nothing else is acted on.
            switches.startService = true;
            return switches;
        }
    }
    return switches;
}

}  // namespace hf
