#include <windows.h>

#include "platform/Clock.h"

namespace hf::os {

DWORD GetTickCount()
{
    return ::GetTickCount();
}

void Sleep(DWORD milliseconds)
{
    ::Sleep(milliseconds);
}

}  // namespace hf::os
