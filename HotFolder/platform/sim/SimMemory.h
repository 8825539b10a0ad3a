// Memory that simulated calls hand to the caller for LocalFree.
#pragma once

#include <cstddef>

namespace hf::sim {

// Allocates `size` zeroed bytes that LocalFree releases.
void* LocalAllocate(std::size_t size);
// Frees what LocalAllocate gave; false when the pointer was not such a block.
bool LocalRelease(void* memory);
// Blocks handed out and not yet freed (tests check for leaks with it).
std::size_t LocalBlocksOutstanding();

}  // namespace hf::sim
