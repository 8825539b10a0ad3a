#include "ControlTool.h"

#include "EventReporter.h"
#include "WideText.h"
#include "supervisor/Command.h"
#include "supervisor/WatcherLinks.h"
#include "watcher/ControlPipe.h"

#include <cstdlib>
#include <optional>

namespace hf {

namespace {

std::optional<DWORD> ParseCode(std::u16string const& word)
{
    if (EqualsIgnoringAsciiCase(word, u"pause")) {
        return CMD_PAUSE;
    }
    if (EqualsIgnoringAsciiCase(word, u"run")) {
        return CMD_RUN;
    }
    if (EqualsIgnoringAsciiCase(word, u"stop")) {
        return CMD_STOP;
    }
    std::string const text = ToUtf8(word);
    if (text.empty()) {
        return std::nullopt;
    }
    char* end = nullptr;
    unsigned long long const value = std::strtoull(text.c_str(), &end, 0);
    if (*end != '\0' || value > 0xFFFFFFFFull) {
        return std::nullopt;
    }
    return static_cast<DWORD>(value);
}

}  // namespace

int RunControlTool(std::vector<std::u16string> const& arguments, std::string& output)
{
    std::optional<DWORD> const code = arguments.empty() ? std::nullopt : ParseCode(arguments[0]);
    if (!code || arguments.size() > 2) {
        output =
            "usage: HotFolderControl pause|run|stop|<number> [pipe name]\n"
            "       HotFolderControl install-user|uninstall-user|is-installed DOMAIN\\user\n"
            "       HotFolderControl register|unregister\n";
        return 2;
    }
    std::u16string const pipe = arguments.size() == 2 ? arguments[1] : WatcherPipeName();
    EventReporter events(kCategoryService);
    WatcherLinks links;
    if (!ConnectToWatcher(pipe, links, events, *code)) {
        output = "could not write " + ToUtf8(HexText(*code)) + " to " + ToUtf8(pipe) + "\n";
        return 1;
    }
    output = "wrote " + ToUtf8(HexText(*code)) + " to " + ToUtf8(pipe) + "\n";
    return 0;
}

}  // namespace hf
