#include "platform/Errors.h"

namespace hf::os {

namespace {
thread_local DWORD lastError = 0;
}

DWORD GetLastError()
{
    return lastError;
}

void SetLastError(DWORD errorCode)
{
    lastError = errorCode;
}

}  // namespace hf::os
