// Child processes and the account the process runs as, on the simulated machine.
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Logon.h"
#include "platform/Process.h"
#include "platform/sim/SimWorld.h"

#include <cstring>

namespace hf::sim {

void ChildProcess::Exit(DWORD code, bool terminatedByCall)
{
    if (!running) {
        return;
    }
    running = false;
    terminated = terminatedByCall;
    exitCode = code;
    // A hook may close pipes whose peers react at once; take the list first.
    for (auto& hook : std::exchange(exitHooks_, {})) {
        hook();
    }
}

void ChildProcess::ExitAfter(DWORD delay, DWORD code)
{
    TheWorld().After(delay, [self = weak_from_this(), code] {
        if (auto process = self.lock()) {
            process->Exit(code);
        }
    });
}

int ChildProcess::HandlesOpen() const
{
    auto object = kernelObject.lock();
    return object ? object->handleCount : 0;
}

std::shared_ptr<ChildProcess> ChildProcesses::Start(
    std::u16string const& path, std::function<void(std::shared_ptr<ChildProcess> const&)> const& describe)
{
    for (auto const& image : images_) {
        if (EqualsIgnoringAsciiCase(image.path, path)) {
            ImageBehaviour const behaviour = image.behaviour;
            auto process = std::make_shared<ChildProcess>();
            describe(process);
            started_.push_back(process);
            if (behaviour) {
                behaviour(process);
            }
            return process;
        }
    }
    return nullptr;
}

}  // namespace hf::sim

namespace hf::os {

namespace {

// The kernel object behind a process handle, or behind the handle of its first
// thread, which lives exactly as long as the process: signalled once it has ended.
class ProcessObject : public sim::Object {
public:
    ProcessObject(std::shared_ptr<sim::ChildProcess> process, bool thread) : process(std::move(process)), thread(thread)
    {
    }
    bool IsWaitable() const override { return true; }
    bool IsSignaled() const override { return !process->running; }
    std::shared_ptr<sim::ChildProcess> process;
    bool thread;
};

// Starts a process of the program that `applicationName` names (the product
// always names it), running as `account`. Process and thread ids are not kept:
// nothing reads them.
BOOL StartProcess(std::u16string const& account, const WCHAR* applicationName, WCHAR* commandLine,
                  const WCHAR* currentDirectory, STARTUPINFOW* startupInfo, PROCESS_INFORMATION* processInformation)
{
    std::u16string const line = commandLine ? commandLine : u"";
    if (commandLine != nullptr) {
        // The system may write into the command line while it parses it; a
        // read-only buffer would fault here as it does on Windows.
        std::memmove(commandLine, line.c_str(), (line.size() + 1) * sizeof(WCHAR));
    }
    auto& world = sim::TheWorld();
    auto const process =
        world.processes.children.Start(applicationName ? applicationName : u"", [&](auto const& started) {
            started->applicationName = applicationName;
            started->commandLine = line;
            started->startupInfoSize = startupInfo ? startupInfo->cb : 0;
            started->currentDirectory = currentDirectory ? currentDirectory : u"";
            if (startupInfo != nullptr && startupInfo->lpDesktop != nullptr) {
                started->desktop = std::u16string(startupInfo->lpDesktop);
            }
            started->userName = account;
            auto object = std::make_shared<ProcessObject>(started, false);
            started->kernelObject = object;
            processInformation->hProcess = world.AddHandle(object);
            processInformation->hThread = world.AddHandle(std::make_shared<ProcessObject>(started, true));
        });
    if (!process) {
        SetLastError(ERROR_FILE_NOT_FOUND);
    }
    return process ? TRUE : FALSE;
}

}  // namespace

BOOL CreateProcessW(const WCHAR* applicationName, WCHAR* commandLine, void* /*processAttributes*/,
                    void* /*threadAttributes*/, BOOL /*inheritHandles*/, DWORD /*creationFlags*/, void* /*environment*/,
                    const WCHAR* currentDirectory, STARTUPINFOW* startupInfo, PROCESS_INFORMATION* processInformation)
{
    return StartProcess(sim::TheWorld().processes.current.userName, applicationName, commandLine, currentDirectory,
                        startupInfo, processInformation);
}

BOOL CreateProcessAsUserW(HANDLE token, const WCHAR* applicationName, WCHAR* commandLine, void* /*processAttributes*/,
                          void* /*threadAttributes*/, BOOL /*inheritHandles*/, DWORD /*creationFlags*/,
                          void* /*environment*/, const WCHAR* currentDirectory, STARTUPINFOW* startupInfo,
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
    return StartProcess(*account, applicationName, commandLine, currentDirectory, startupInfo, processInformation);
}

BOOL TerminateProcess(HANDLE process, unsigned exitCode)
{
    auto const target = sim::TheWorld().LookupAs<ProcessObject>(process);
    if (!target || target->thread) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!target->process->running) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    target->process->Exit(exitCode, true);
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
