// The client end of the Acrobat plug-in's pipe, \\.\pipe\Tarnwick_PlugIn_<user>.
#pragma once

#include "EventReporter.h"
#include "platform/Types.h"

#include <string>

namespace hf {

// The plug-in pipe's name for the calling user, worked out afresh.
std::u16string PlugInPipeName();

// Opens the plug-in's pipe for overlapped reads and writes and reports message
// 33; INVALID_HANDLE_VALUE, silently, when it cannot be opened (the caller may
// read GetLastError()).
HANDLE OpenPlugInPipe(EventReporter& reporter);

}  // namespace hf
