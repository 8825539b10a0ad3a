// The service's worker thread: reconnects to running watchers, launches the
// missing ones, then relays queued commands until told to stop.
#pragma once

#include "platform/Types.h"

namespace hf {

// A thread procedure; the parameter is ignored and the result is always 0.
DWORD SupervisorThread(void* parameter);

}  // namespace hf
