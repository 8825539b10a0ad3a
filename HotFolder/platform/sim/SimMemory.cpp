#include "platform/sim/SimMemory.h"

#include <cstdlib>
#include <mutex>
#include <set>

namespace hf::sim {

namespace {
std::mutex& BlocksMutex()
{
    static std::mutex mutex;
    return mutex;
}
std::set<void*>& Blocks()
{
    static std::set<void*> blocks;
    return blocks;
}
}  // namespace

void* LocalAllocate(std::size_t size)
{
    void* memory = std::calloc(size == 0 ? 1 : size, 1);
    std::lock_guard<std::mutex> lock(BlocksMutex());
    Blocks().insert(memory);
    return memory;
}

bool LocalRelease(void* memory)
{
    std::lock_guard<std::mutex> lock(BlocksMutex());
    if (Blocks().erase(memory) == 0) {
        return false;
    }
    std::free(memory);
    return true;
}

std::size_t LocalBlocksOutstanding()
{
    std::lock_guard<std::mutex> lock(BlocksMutex());
    return Blocks().size();
}

}  // namespace hf::sim
