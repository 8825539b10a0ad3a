// The simulated named pipes of the machine (\\.\pipe\...): server instances,
// client ends, the bytes in between, and peers that a test scripts.
#pragma once

#include "platform/Types.h"

#include <string>
#include <vector>

namespace hf::sim {

class Pipes {
public:
    // CreateFileW of a name under \\.\pipe\: the client end of a listening instance.
    HANDLE OpenClient(std::u16string const& name, DWORD access, DWORD flags);
    // The pipe names the machine lists under \\.\pipe\* (without that prefix).
    std::vector<std::u16string> Names() const;
    void Clear();
};

}  // namespace hf::sim
