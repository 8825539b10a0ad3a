// The millisecond tick counter, and sleeping. It wraps after about 49.7 days, so callers take
// differences in unsigned 32-bit arithmetic.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// GetTickCount: milliseconds since the system started, modulo 2^32.
DWORD GetTickCount();

// Sleep: suspends the calling thread for the given milliseconds.
void Sleep(DWORD milliseconds);

}  // namespace hf::os
