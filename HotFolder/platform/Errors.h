// The calling thread's last-error value, as every failing platform call leaves it.
#pragma once

#include "platform/Types.h"

namespace hf::os {

// GetLastError: the calling thread's last-error code.
DWORD GetLastError();

// SetLastError: sets the calling thread's last-error code.
void SetLastError(DWORD errorCode);

}  // namespace hf::os
