#include <windows.h>

#include "platform/Errors.h"

namespace hf::os {

DWORD GetLastError()
{
    return ::GetLastError();
}

void SetLastError(DWORD errorCode)
{
    ::SetLastError(errorCode);
}

}  // namespace hf::os
