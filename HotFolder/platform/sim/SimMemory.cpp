#include "platform/sim/SimMemory.h"

#include <cstdlib>
#include <map>

namespace hf::sim {

namespace {

// The simulated threads take turns on one real thread, so the table needs no lock.
struct Blocks {
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
    blocks.sizes.emplace(memory, size);
    return memory;
}

bool LocalRelease(void* memory)
{
    Blocks& blocks = TheBlocks();
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

std::vector<std::vector<unsigned char>> ReleasedBlocks()
{
    return TheBlocks().released;
}

std::vector<std::vector<unsigned char>> HeldBlocks()
{
    Blocks& blocks = TheBlocks();
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
    for (auto const& block : blocks.sizes) {
        std::free(block.first);
    }
    blocks.sizes.clear();
    blocks.released.clear();
}

}  // namespace hf::sim
