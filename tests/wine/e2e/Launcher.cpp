// hf_launch.exe starts the command line in HF_LAUNCH_COMMAND_LINE exactly as
// given (the program's GetCommandLineW is that text, byte for byte), waits for
// the program and prints its exit code as Windows returns it, 32 bits: the Unix
// exit status of a Wine process keeps only the low 8 bits.
#include <windows.h>

#include <cstdio>
#include <vector>

int wmain()
{
    std::vector<wchar_t> commandLine(32768);
    GetEnvironmentVariableW(L"HF_LAUNCH_COMMAND_LINE", commandLine.data(), 32768);
    // The program under test gets the environment without the launcher's own variable.
    SetEnvironmentVariableW(L"HF_LAUNCH_COMMAND_LINE", nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
        std::fprintf(stderr, "hf_launch: cannot start \"%ls\": error %lu\n", commandLine.data(), GetLastError());
        return 3;
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 0;
    GetExitCodeProcess(process.hProcess, &exitCode);
    std::printf("exit code %ld\n", static_cast<long>(static_cast<LONG>(exitCode)));
    std::fflush(stdout);
    return static_cast<int>(exitCode);
}
