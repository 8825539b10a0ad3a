#include "platform/sim/CommandLineSplit.h"

namespace hf::sim {

namespace {

// The program name ends at the closing quote when it starts with one, else at
// the first character up to U+0020, which ends it and is dropped (so a name
// followed by a CR or LF starts the arguments there); it has no escapes.
std::size_t ReadProgramName(std::u16string const& line, std::u16string& name)
{
    bool const quoted = !line.empty() && line[0] == u'"';
    std::size_t i = quoted ? 1 : 0;
    while (i < line.size() && (quoted ? line[i] != u'"' : line[i] > u' ')) {
        name += line[i++];
    }
    return i < line.size() ? i + 1 : i;
}

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
}

}  // namespace

// Later arguments: blanks separate; 2n backslashes before a quote give n
// backslashes and the quote opens or closes a quoted part; 2n+1 give n and a
// literal quote; inside a quoted part a doubled quote gives one literal quote
// and ends the quoted part; other backslashes are literal.
std::vector<std::u16string> SplitCommandLine(std::u16string const& line, std::u16string const& modulePath)
{
    std::vector<std::u16string> args;
    if (line.empty()) {
        args.push_back(modulePath);
        return args;
    }
    std::u16string current;
    std::size_t i = ReadProgramName(line, current);
    args.push_back(current);
    for (;;) {
        while (i < line.size() && IsBlank(line[i])) {
            ++i;
        }
        if (i >= line.size()) {
            break;
        }
        current.clear();
        bool quoted = false;
        while (i < line.size() && (quoted || !IsBlank(line[i]))) {
            std::size_t backslashes = 0;
            while (i < line.size() && line[i] == u'\\') {
                ++backslashes;
                ++i;
            }
            if (i < line.size() && line[i] == u'"') {
                current.append(backslashes / 2, u'\\');
                if (backslashes % 2 == 1) {
                    current += u'"';
                    ++i;
                } else if (quoted && i + 1 < line.size() && line[i + 1] == u'"') {
                    current += u'"';
                    quoted = false;
                    i += 2;
                } else {
                    quoted = !quoted;
                    ++i;
                }
            } else {
                current.append(backslashes, u'\\');
                if (i < line.size() && (quoted || !IsBlank(line[i]))) {
                    current += line[i++];
                }
            }
        }
        args.push_back(current);
    }
    return args;
}

}  // namespace hf::sim
