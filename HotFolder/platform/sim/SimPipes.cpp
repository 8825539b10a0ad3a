#include "platform/sim/SimPipes.h"

#include "platform/Errors.h"

namespace hf::sim {

// No pipe exists yet: every open fails as for a missing pipe.
HANDLE Pipes::OpenClient(std::u16string const& /*name*/, DWORD /*access*/, DWORD /*flags*/)
{
    os::SetLastError(2);  // ERROR_FILE_NOT_FOUND
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
}

std::vector<std::u16string> Pipes::Names() const
{
    return {};
}

void Pipes::Clear()
{
}

}  // namespace hf::sim
