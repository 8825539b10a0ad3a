// The console entry of HotFolderControl.exe.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ControlTool.h"

int wmain(int argc, wchar_t** argv)
{
    std::vector<std::u16string> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.emplace_back(reinterpret_cast<char16_t const*>(argv[i]));
    }
    std::string output;
    int const result = hf::RunControlTool(arguments, output);
    std::fputs(output.c_str(), result == 0 ? stdout : stderr);
    return result;
}
