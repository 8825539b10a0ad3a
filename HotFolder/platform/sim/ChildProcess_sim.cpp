// Child processes and the account the process runs as, on the simulated machine.
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Logon.h"
#include "platform/Process.h"
#include "platform/sim/SimChildProcesses.h"
#include "platform/sim/SimWorld.h"

#include <cstring>

namespace hf::os {

namespace {

constexpr DWORD kFirstThreadId = 7000;

// The kernel object behind a process handle: signalled once the process has ended.
class ProcessObject : public sim::Object {
public:
    explicit ProcessObject(std::shared_ptr<sim::ChildProcess> process) : process(std::move(process)) {}
    bool IsWaitable() const override { return true; }
    bool IsSignaled() const override { return !process->running; }
    std::shared_ptr<sim::ChildProcess> process;
};

// The process's first thread, which lives exactly as long as the process.
class ThreadObject : public sim::Object {
public:
    explicit ThreadObject(std::shared_ptr<sim::ChildProcess> process) : process(std::move(process)) {}
    bool IsWaitable() const override { return true; }
    bool IsSignaled() const override { return !process->running; }
    std::shared_ptr<sim::ChildProcess> process;
};

std::shared_ptr<sim::ChildProcess> ProcessOf(HANDLE handle)
{
    auto object = sim::TheWorld().LookupAs<ProcessObject>(handle);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return object->process;
}

// The program a command line names when no application name is given: its
// first token, quoted or up to the first blank.
std::u16string FirstToken(std::u16string const& commandLine)
{
    if (!commandLine.empty() && commandLine.front() == u'"') {
        std::size_t const end = commandLine.find(u'"', 1);
        return commandLine.substr(1, end == std::u16string::npos ? std::u16string::npos : end - 1);
    }
    return commandLine.substr(0, commandLine.find_first_of(u" \t"));
}

// Starts a process of the program that `applicationName` or the command line
// names, running as `account`.
BOOL StartProcess(std::u16string const& account, const WCHAR* applicationName, WCHAR* commandLine, BOOL inheritHandles,
                  DWORD creationFlags, const WCHAR* currentDirectory, STARTUPINFOW* startupInfo,
                  PROCESS_INFORMATION* processInformation)
{
    std::u16string const line = commandLine ? commandLine : u"";
    if (commandLine != nullptr) {
        // The system may write into the command line while it parses it; a
        // read-only buffer would fault here as it does on Windows.
        std::size_t const length = line.size();
        std::memmove(commandLine, line.c_str(), (length + 1) * sizeof(WCHAR));
    }
    std::u16string const path = applicationName ? std::u16string(applicationName) : FirstToken(line);
    if (path.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    auto& world = sim::TheWorld();
    DWORD error = 0;
    auto process = world.processes.children.Start(path, error);
    if (!process) {
        SetLastError(error);
        return FALSE;
    }
    process->applicationName = applicationName ? applicationName : u"";
    process->commandLine = line;
    process->inheritHandles = inheritHandles;
    process->creationFlags = creationFlags;
    process->startupInfoSize = startupInfo ? startupInfo->cb : 0;
    process->currentDirectory = currentDirectory ? currentDirectory : u"";
    if (startupInfo != nullptr && startupInfo->lpDesktop != nullptr) {
        process->desktop = std::u16string(startupInfo->lpDesktop);
    }
    process->userName = account;

    auto object = std::make_shared<ProcessObject>(process);
    process->kernelObject = object;
    processInformation->hProcess = world.AddHandle(object);
    processInformation->hThread = world.AddHandle(std::make_shared<ThreadObject>(process));
    processInformation->dwProcessId = process->processId;
    processInformation->dwThreadId = kFirstThreadId + process->processId;
    world.processes.children.RunBehaviour(process);
    return TRUE;
}

}  // namespace

BOOL CreateProcessW(const WCHAR* applicationName, WCHAR* commandLine, void* /*processAttributes*/,
                    void* /*threadAttributes*/, BOOL inheritHandles, DWORD creationFlags, void* /*environment*/,
                    const WCHAR* currentDirectory, STARTUPINFOW* startupInfo, PROCESS_INFORMATION* processInformation)
{
    DWORD error = 0;
    if (sim::Injected("CreateProcessW", error)) {
        return FALSE;
    }
    return StartProcess(sim::TheWorld().processes.current.userName, applicationName, commandLine, inheritHandles,
                        creationFlags, currentDirectory, startupInfo, processInformation);
}

BOOL CreateProcessAsUserW(HANDLE token, const WCHAR* applicationName, WCHAR* commandLine, void* /*processAttributes*/,
                          void* /*threadAttributes*/, BOOL inheritHandles, DWORD creationFlags, void* /*environment*/,
                          const WCHAR* currentDirectory, STARTUPINFOW* startupInfo,
                          PROCESS_INFORMATION* processInformation)
{
    DWORD error = 0;
    if (sim::Injected("CreateProcessAsUserW", error)) {
        return FALSE;
    }
    auto const account = sim::TokenAccount(token);
    if (!account) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return StartProcess(*account, applicationName, commandLine, inheritHandles, creationFlags, currentDirectory,
                        startupInfo, processInformation);
}

BOOL TerminateProcess(HANDLE process, unsigned exitCode)
{
    DWORD error = 0;
    if (sim::Injected("TerminateProcess", error)) {
        return FALSE;
    }
    auto target = ProcessOf(process);
    if (!target) {
        return FALSE;
    }
    if (!target->running) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    target->Terminate(exitCode);
    return TRUE;
}

BOOL GetExitCodeProcess(HANDLE process, DWORD* exitCode)
{
    DWORD error = 0;
    if (sim::Injected("GetExitCodeProcess", error)) {
        return FALSE;
    }
    auto target = ProcessOf(process);
    if (!target) {
        return FALSE;
    }
    *exitCode = target->running ? STILL_ACTIVE : target->exitCode;
    return TRUE;
}

BOOL GetUserNameExW(int nameFormat, WCHAR* nameBuffer, DWORD* size)
{
    DWORD error = 0;
    if (sim::Injected("GetUserNameExW", error)) {
        return FALSE;
    }
    std::u16string const& name = sim::TheWorld().processes.current.userName;
    // Only the DOMAIN\user form is kept for the simulated account; an account
    // without a name cannot be mapped to any form.
    if (nameFormat != NameSamCompatible || name.empty()) {
        SetLastError(ERROR_NONE_MAPPED);
        return FALSE;
    }
    auto const needed = static_cast<DWORD>(name.size() + 1);
    if (*size < needed || nameBuffer == nullptr) {
        *size = needed;
        SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    std::memcpy(nameBuffer, name.c_str(), needed * sizeof(WCHAR));
    *size = needed - 1;
    return TRUE;
}

}  // namespace hf::os
