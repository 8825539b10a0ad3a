#include "Entry.h"

#include "EventReporter.h"
#include "InstallUserAction.h"
#include "ProgramSwitches.h"
#include "StartServiceAction.h"
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/EventLog.h"
#include "platform/Process.h"
#include "platform/UniqueHandle.h"
#include "service/HotFolderModule.h"
#include "service/OneShotSwitches.h"
#include "supervisor/CommandQueue.h"
#include "supervisor/SupervisorThread.h"
#include "watcher/RunWatcher.h"

#include <vector>

namespace hf {

namespace {

// The arguments after the program name, split by the Windows rules.
std::vector<std::u16string> ProgramArguments(const WCHAR* commandLine)
{
    std::vector<std::u16string> arguments;
    int count = 0;
    UniqueLocalMemory block(os::CommandLineToArgvW(commandLine, &count));
    if (!block) {
        return arguments;
    }
    auto** argv = static_cast<WCHAR**>(block.get());
    for (int i = 1; i < count; ++i) {
        arguments.emplace_back(argv[i]);
    }
    return arguments;
}

// The service and local-server path: the supervisor runs on a thread of its
// own while the main thread is lent to the service module.
int RunServiceRole(std::u16string const& commandLine, int showWindow)
{
    CHotFolderModule& module = TheModule();
    if (module.InitializationFailed()) {
        return -1;
    }
    HRESULT oneShotResult = 0;
    if (HandleOneShotSwitches(commandLine, oneShotResult)) {
        return oneShotResult;
    }
    // CreateThread's result is not acted on: without a supervisor the service
    // still starts, and the final wait returns at once.
    UniqueKernelHandle supervisor(
        os::CreateThread(nullptr, 0, &SupervisorThread, nullptr, 0, &module.supervisorThreadId));
    LONG const result = module.Start(showWindow);
    if (result != 0) {
        TheCommandQueue().Post(Command{CMD_STOP, {}});
        EventReporter serviceEvents(kCategoryService);
        serviceEvents.Report(EVENTLOG_ERROR_TYPE, MSG_SERVICE_RUN_FAILED, {DecimalText(result)});
    }
    if (supervisor) {
        os::WaitForSingleObject(supervisor.get(), INFINITE);
    }
    return result;
}

}  // namespace

int HotFolderMain(HINSTANCE /*instance*/, int showWindow)
{
    std::u16string const commandLine = os::GetCommandLineW();
    EventReporter events(kCategoryUser);
    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_LAUNCHED_WITH_COMMANDLINE, {commandLine});

    ProgramSwitches const switches = ScanProgramSwitches(ProgramArguments(commandLine.c_str()));
    if (switches.startService) {
        return StartInstalledService(events);
    }
    if (switches.runWatcher) {
        if (switches.installUser) {
            WriteRunEntry(events);
        }
        return RunWatcher(switches.asService);
    }
    return RunServiceRole(commandLine, showWindow);
}

}  // namespace hf
