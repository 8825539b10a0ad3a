// HotFolderControl: tells a running watcher to pause, run or stop over its
// control pipe, exactly as the service does. For administrators and tests.
#pragma once

#include <string>
#include <vector>

namespace hf {

// Usage: HotFolderControl pause|run|stop|<number> [pipe name]
// Without a pipe name the watcher of the current user is addressed. A number
// (decimal or 0x hexadecimal) is written as it is. Returns 0 when the command
// was written, 1 when the pipe could not be opened or written, 2 on bad usage.
int RunControlTool(std::vector<std::u16string> const& arguments, std::string& output);

}  // namespace hf
