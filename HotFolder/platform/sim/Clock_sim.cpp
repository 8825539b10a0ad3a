#include "platform/Clock.h"
#include "platform/sim/SimWorld.h"

namespace hf::os {

DWORD GetTickCount()
{
    return sim::TheWorld().Ticks();
}

void Sleep(DWORD milliseconds)
{
    sim::TheWorld().Advance(milliseconds);
}

}  // namespace hf::os
