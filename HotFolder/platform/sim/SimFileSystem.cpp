#include "platform/sim/SimFileSystem.h"

#include "platform/Errors.h"

namespace hf::sim {

// No files exist yet: every open fails as for a missing path.
HANDLE FileSystem::Open(std::u16string const& /*path*/, DWORD /*access*/, DWORD /*share*/, DWORD /*disposition*/,
                        DWORD /*flags*/)
{
    os::SetLastError(3);  // ERROR_PATH_NOT_FOUND
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
}

void FileSystem::Clear()
{
}

}  // namespace hf::sim
