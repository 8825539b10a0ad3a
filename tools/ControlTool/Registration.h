// HotFolderControl's register and unregister commands, which the product's
// MSI runs: TarnwickHotFolder.exe -Service or -UnregServer from the same
// folder, with nothing left waiting on a window nobody can see.
#pragma once

#include <string>

namespace hf {

// True when `command` is register or unregister.
bool IsRegistrationCommand(std::u16string const& command);

// Runs the executable next to this program with -Service (register) or
// -UnregServer (unregister) and waits for it. The executable shows a message
// box when the service control manager refuses it; an installer runs it as
// LocalSystem on a desktop no one sees, where the box would wait for ever. So
// every message box it opens is answered with its one button, OK, as soon as
// it appears, and its text is written to `output`. Returns 0 when the
// executable exited with 0, else 1 (its exit code is in `output`).
int RunRegistrationCommand(std::u16string const& command, std::string& output);

}  // namespace hf
