// The process entry: reads the command line once, logs it, and plays exactly
// one role: start the installed service, run the watcher, carry out a one-shot
// registration switch, or run as the service and COM local server.
#pragma once

#include "platform/Types.h"

namespace hf {

// Called from the Windows GUI entry point; returns the process exit code.
int HotFolderMain(HINSTANCE instance, int showWindow);

}  // namespace hf
