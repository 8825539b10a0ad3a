// The one-shot registration switches (RegServer, UnregServer,
// RegServerPerUser, UnregServerPerUser, Service), found anywhere in the raw
// command line after a "-" or "/".
#pragma once

#include "platform/Types.h"

#include <string>

namespace hf {

// True when a switch was found and carried out; `result` is then its result
// code (0 on success). False, with result 0, when the line holds none.
bool HandleOneShotSwitches(std::u16string const& commandLine, HRESULT& result);

}  // namespace hf
