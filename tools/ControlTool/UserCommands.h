// HotFolderControl's user commands: they call the service's FolderService over
// COM, as any user-side tool would, to add, remove or look up a user whose
// hot folders the service runs.
#pragma once

#include "platform/Types.h"

#include <functional>
#include <string>
#include <vector>

namespace hf {

// What the commands need from the console: the password, read without echo
// (false when none could be read), and the system's text for an HRESULT.
struct UserCommandConsole {
    std::function<bool(std::u16string const& user, std::u16string& password)> readPassword;
    std::function<std::string(HRESULT)> systemText;
};

// True when `command` is one of install-user, uninstall-user, is-installed.
bool IsUserCommand(std::u16string const& command);

// Runs `command DOMAIN\user`. Exit codes: 0 done (is-installed: the user is
// installed), 1 the call failed (the HRESULT and its text are in `output`),
// 2 bad usage, 3 is-installed: the user is not installed.
int RunUserCommand(std::vector<std::u16string> const& arguments, UserCommandConsole const& console,
                   std::string& output);

}  // namespace hf
