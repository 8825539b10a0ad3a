// The commands that travel from the service's threads to the supervisor, and
// (the first three) on to the watchers over their control pipes.
#pragma once

#include "platform/Types.h"

#include <string>

namespace hf {

constexpr DWORD CMD_PAUSE = 0x8000;
constexpr DWORD CMD_RUN = 0x8001;
constexpr DWORD CMD_STOP = 0x8002;
// Queue only: a watcher announced its control pipe; the argument is its name.
constexpr DWORD CMD_CONNECT = 0x8003;

struct Command {
    DWORD code = 0;
    std::u16string argument;
};

}  // namespace hf
