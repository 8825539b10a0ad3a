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

std::vector<std::vector<unsigned char>> HeldBlocks()
{
    Blocks& blocks = TheBlocks();
    std::lock_guard<std::mutex> lock(blocks.mutex);
    std::vector<std::vector<unsigned char>> held;
    for (auto const& [memory, size] : blocks.sizes) {
        auto const* bytes = static_cast<unsigned char const*>(memory);
        held.emplace_back(bytes, bytes + size);
    }
    return held;
}

void ResetLocalMemory()
{
    Blocks& blocks = TheBlocks();
    std::lock_guard<std::mutex> lock(blocks.mutex);
    for (auto const& block : blocks.sizes) {
        std::free(block.first);
    }
    blocks.sizes.clear();
    blocks.released.clear();
}

}  // namespace hf::sim
