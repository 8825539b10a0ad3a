// -startservice: asks the service control manager to start the installed service.
#pragma once

#include "EventReporter.h"

namespace hf {

// Returns StartServiceW's raw result as the exit code: 1 when the start was
// accepted, 0 otherwise (an already running service included, silently).
int StartInstalledService(EventReporter& events);

}  // namespace hf
