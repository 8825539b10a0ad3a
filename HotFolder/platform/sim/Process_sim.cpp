#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Process.h"
#include "platform/sim/CommandLineSplit.h"
#include "platform/sim/SimMemory.h"
#include "platform/sim/SimWorld.h"

#include <cstring>
#include <utility>

namespace hf::os {

namespace {

HINSTANCE const kExecutableModule = reinterpret_cast<HINSTANCE>(static_cast<std::uintptr_t>(0x400000));

// A simulated thread runs when the first wait on it needs it to: the process
// has one thread of control at a time, which keeps every run deterministic.
class Thread : public sim::Object {
public:
    Thread(LPTHREAD_START_ROUTINE start, void* parameter, DWORD id) : start(start), parameter(parameter), id(id) {}
    bool IsWaitable() const override { return true; }
    bool IsSignaled() const override { return finished; }
    void RunToEnd()
    {
        if (started) {
            return;
        }
        started = true;
        auto& processes = sim::TheWorld().processes;
        DWORD const caller = std::exchange(processes.currentThreadId, id);
        start(parameter);
        processes.currentThreadId = caller;
        finished = true;
        ++processes.threadsFinished;
    }

    LPTHREAD_START_ROUTINE start;
    void* parameter;
    DWORD id;
    bool started = false;
    bool finished = false;
};

}  // namespace

const WCHAR* GetCommandLineW()
{
    return sim::TheWorld().processes.current.commandLine.c_str();
}

WCHAR** CommandLineToArgvW(const WCHAR* commandLine, int* argc)
{
    auto const args =
        sim::SplitCommandLine(commandLine ? commandLine : u"", sim::TheWorld().processes.current.modulePath);
    // One block, as Windows gives it: the pointer array, then the strings.
    std::size_t bytes = (args.size() + 1) * sizeof(WCHAR*);
    for (auto const& arg : args) {
        bytes += (arg.size() + 1) * sizeof(WCHAR);
    }
    auto* block = static_cast<unsigned char*>(sim::LocalAllocate(bytes));
    auto** argv = reinterpret_cast<WCHAR**>(block);
    auto* text = reinterpret_cast<WCHAR*>(block + (args.size() + 1) * sizeof(WCHAR*));
    for (std::size_t i = 0; i < args.size(); ++i) {
        argv[i] = text;
        std::memcpy(text, args[i].c_str(), (args[i].size() + 1) * sizeof(WCHAR));
        text += args[i].size() + 1;
    }
    argv[args.size()] = nullptr;
    *argc = static_cast<int>(args.size());
    return argv;
}

DWORD GetModuleFileNameW(HINSTANCE /*module*/, WCHAR* buffer, DWORD size)
{
    std::u16string const& path = sim::TheWorld().processes.current.modulePath;
    if (size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    if (path.size() + 1 > size) {
        std::memcpy(buffer, path.data(), (size - 1) * sizeof(WCHAR));
        buffer[size - 1] = 0;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    std::memcpy(buffer, path.c_str(), (path.size() + 1) * sizeof(WCHAR));
    return static_cast<DWORD>(path.size());
}

HINSTANCE GetModuleHandleW(const WCHAR* moduleName)
{
    return moduleName == nullptr ? kExecutableModule : nullptr;
}

namespace {

// The console or file that the process's standard output goes to.
class StandardOutput : public sim::IoObject {
public:
    BOOL Write(const void* buffer, DWORD size, DWORD* written) override
    {
        sim::TheWorld().processes.current.standardOutput.append(static_cast<const char*>(buffer), size);
        if (written) {
            *written = size;
        }
        return 1;
    }
};

}  // namespace

HANDLE GetStdHandle(DWORD which)
{
    auto& world = sim::TheWorld();
    if (which != STD_OUTPUT_HANDLE) {
        return nullptr;
    }
    if (!world.Lookup(world.processes.standardOutput)) {
        world.processes.standardOutput = world.AddHandle(std::make_shared<StandardOutput>());
    }
    return world.processes.standardOutput;
}

HANDLE CreateThread(void* /*securityAttributes*/, std::size_t /*stackSize*/, LPTHREAD_START_ROUTINE start,
                    void* parameter, DWORD /*creationFlags*/, DWORD* threadId)
{
    DWORD error = 0;
    if (sim::Injected("CreateThread", error)) {
        return nullptr;
    }
    auto& world = sim::TheWorld();
    ++world.processes.threadsCreated;
    auto const id = static_cast<DWORD>(1000 + world.processes.threadsCreated);
    if (threadId) {
        *threadId = id;
    }
    auto thread = std::make_shared<Thread>(start, parameter, id);
    world.processes.threadStarts.push_back([weak = std::weak_ptr<Thread>(thread)] {
        auto const target = weak.lock();
        if (!target || target->started) {
            return false;
        }
        target->RunToEnd();
        return true;
    });
    return world.AddHandle(thread);
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds)
{
    DWORD error = 0;
    if (sim::Injected("WaitForSingleObject", error)) {
        return WAIT_FAILED;
    }
    auto& world = sim::TheWorld();
    std::shared_ptr<sim::Object> target = world.Lookup(object);
    if (!target || !target->IsWaitable()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    if (auto thread = std::dynamic_pointer_cast<Thread>(target)) {
        thread->RunToEnd();
    }
    DWORD const result = world.Wait([&] { return target->IsSignaled(); }, milliseconds, false);
    if (result == WAIT_OBJECT_0) {
        target->Consume();
    }
    return result;
}

BOOL CloseHandle(HANDLE object)
{
    if (!sim::TheWorld().CloseHandle(object)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return 1;
}

}  // namespace hf::os
