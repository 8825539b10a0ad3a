// The Windows rules for splitting a command line into arguments, as
// CommandLineToArgvW applies them.
#pragma once

#include <string>
#include <vector>

namespace hf::sim {

std::vector<std::u16string> SplitCommandLine(std::u16string const& commandLine, std::u16string const& modulePath);

}  // namespace hf::sim
