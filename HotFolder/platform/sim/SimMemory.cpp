#include "platform/sim/SimMemory.h"

#include <cstdlib>
#include <map>
#include <mutex>

namespace hf::sim {

namespace {

struct Blocks {
    std::mutex mutex;
    std::map<void*, std::size_t> sizes;
    std::vector<std::vector<unsigned char>> released;
};

Blocks& TheBlocks()
{
    static Blocks blocks;
    return blocks;
}

}  // namespace

void* LocalAllocate(std::size_t size)
{
    void* memory = std::calloc(size == 0 ? 1 : size, 1);
    Blocks& blocks = TheBlocks();
    std::lock_guard<std::mutex> lock(blocks.mutex);
    blocks.sizes.emplace(memory, size);
    return memory;
}

bool LocalRelease(void* memory)
{
    Blocks& blocks = TheBlocks();
    std::lock_guard<std::mutex> lock(blocks.mutex);
    auto const block = blocks.sizes.find(memory);
    if (block == blocks.sizes.end()) {
        return false;
    }
    auto const* bytes = static_cast<unsigned char const*>(memory);
    blocks.released.emplace_back(bytes, bytes + block->second);
    blocks.sizes.erase(block);
    std::free(memory);
    return true;
}

std::size_t LocalBlocksOutstanding()
{
    Blocks& blocks = TheBlocks();
    std::lock_guard<std::mutex> lock(blocks.mutex);
    return blocks.sizes.size();
}

std::vector<std::vector<unsigned char>> ReleasedBlocks()
{
    Blocks& blocks = TheBlocks();
    std::lock_guard<std::mutex> lock(blocks.mutex);
    return blocks.released;
}

void ForgetReleasedBlocks()
{
    Blocks& blocks = TheBlocks();
    std::lock_guard<std::mutex> lock(blocks.mutex);
    blocks.released.clear();
}

}  // namespace hf::sim
