// The simulated file system: drives, directories and files with their
// contents, the change records that watched directories receive, and the
// shell folders of the user.
#pragma once

#include "platform/Types.h"

#include <string>

namespace hf::sim {

class FileSystem {
public:
    // CreateFileW of any name that is not a pipe.
    HANDLE Open(std::u16string const& path, DWORD access, DWORD share, DWORD disposition, DWORD flags);
    void Clear();
};

}  // namespace hf::sim
