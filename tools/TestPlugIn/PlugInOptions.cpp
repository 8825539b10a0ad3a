#include "PlugInOptions.h"

#include "WideText.h"

namespace hf::testplugin {

namespace {

std::optional<unsigned> Number(std::u16string const& text)
{
    if (text.empty() || text.size() > 9) {
        return std::nullopt;
    }
    unsigned value = 0;
    for (char16_t c : text) {
        if (c < u'0' || c > u'9') {
            return std::nullopt;
        }
        value = value * 10 + static_cast<unsigned>(c - u'0');
    }
    return value;
}

}  // namespace

bool ApplySwitches(std::vector<std::u16string> const& switches, PlugInOptions& options, std::string& error)
{
    for (std::u16string const& item : switches) {
        std::size_t const colon = item.find(u':');
        std::u16string const name = AsciiUpper(item.substr(0, colon));
        std::u16string const value = colon == std::u16string::npos ? u"" : item.substr(colon + 1);
        if (name == u"-JOURNAL" && !value.empty()) {
            options.journal = value;
            continue;
        }
        std::optional<unsigned> const number = Number(value);
        if (!number) {
            error = "bad switch: " + ToUtf8(item);
            return false;
        }
        if (name == u"-REPLY" && *number <= 255) {
            options.reply = static_cast<unsigned char>(*number);
        } else if (name == u"-DELAY") {
            options.delayMs = *number;
        } else if (name == u"-BREAK") {
            options.breakAtJob = *number;
        } else if (name == u"-EXIT") {
            options.exitAfterJob = *number;
        } else if (name == u"-STARTDELAY") {
            options.startDelayMs = *number;
        } else if (name == u"-LIFETIME") {
            options.lifetimeMs = *number;
        } else if (name == u"-BENCH") {
            options.benchmark = *number != 0;
        } else {
            error = "unknown switch: " + ToUtf8(item);
            return false;
        }
    }
    return true;
}

}  // namespace hf::testplugin
