#include <windows.h>

#include "platform/Clock.h"

namespace hf::os {

DWORD GetTickCount()
{
    return ::GetTickCount();
}

}  // namespace hf::os
