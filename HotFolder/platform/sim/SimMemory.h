// Memory that simulated calls hand to the caller for LocalFree.
#pragma once

#include <cstddef>
#include <vector>

namespace hf::sim {

// Allocates `size` zeroed bytes that LocalFree releases.
void* LocalAllocate(std::size_t size);
// Frees what LocalAllocate gave; false when the pointer was not such a block.
bool LocalRelease(void* memory);

// What every block held at the moment it was released, in release order, since
// the last ResetLocalMemory: a test reads what the code left in memory it gave
// back (a secret it should have wiped, say).
std::vector<std::vector<unsigned char>> ReleasedBlocks();
// What the blocks not yet released hold now.
std::vector<std::vector<unsigned char>> HeldBlocks();

// A fresh machine: the blocks still held are freed, as a process's heap goes
// with the process, and the released ones forgotten.
void ResetLocalMemory();

}  // namespace hf::sim
