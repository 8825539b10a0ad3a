#include "platform/Clock.h"
#include "platform/sim/SimWorld.h"

namespace hf::os {

DWORD GetTickCount()
{
    return sim::TheWorld().Ticks();
}

}  // namespace hf::os
