// The one-shot registration switches (RegServer, UnregServer,
// RegServerPerUser, UnregServerPerUser, Service), found anywhere in the raw
// command line after a "-" or "/".
#pragma once

#include "platform/Types.h"

#include <string>
#include <string_view>

namespace hf {

enum class OneShotSwitch { None, RegServer, UnregServer, RegServerPerUser, UnregServerPerUser, Service };

// The switch the raw command line asks for. Every "-" or "/" counts, inside
// the program's path too, and the word after it must equal a keyword whole
// (case-insensitively, ending at a blank, a tab or the end of the line). The
// four server switches are looked for first; "Service" only when none of
// them is there.
OneShotSwitch FindOneShotSwitch(std::u16string_view commandLine);

// True when a switch was found and carried out; `result` is then its result
// code (0 on success). False, with result 0, when the line holds none.
bool HandleOneShotSwitches(std::u16string const& commandLine, HRESULT& result);

}  // namespace hf
