// SupervisorHost.exe: the service's supervisor thread on the real win32
// backend, without the service module around it, for the end-to-end test.
// It takes one command a line on standard input and answers each with one
// line on standard output:
//   whoami                  user DOMAIN\name, the account as a watcher names its pipe
//   install NAME PASSWORD   installed <UserStore::Install's result>
//   start                   started (the supervisor thread runs)
//   post CODE [ARGUMENT]    posted (CODE in hexadecimal, onto the process's command queue)
//   wait MILLISECONDS       ended, or running when the thread is still running then
// End of input ends the program.
#include "WideText.h"
#include "acrobat/PipeNames.h"
#include "platform/Constants.h"
#include "platform/Process.h"
#include "platform/UniqueHandle.h"
#include "supervisor/CommandQueue.h"
#include "supervisor/SupervisorThread.h"
#include "supervisor/UserStore.h"

#include <cstdio>
#include <sstream>
#include <string>

using namespace hf;

int wmain()
{
    auto Answer = [](std::string const& line) {
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
    };
    UniqueKernelHandle supervisor;
    char buffer[1024];
    while (std::fgets(buffer, sizeof buffer, stdin) != nullptr) {
        std::istringstream line(buffer);
        std::string command, first, second;  // the command and its arguments
        line >> command >> first >> second;
        if (command == "whoami") {
            Answer("user " + ToUtf8(GetCurrentUserName()));
        } else if (command == "install") {
            Answer("installed " + std::to_string(UserStore::Open().Install(FromUtf8(first), FromUtf8(second))));
        } else if (command == "start") {
            supervisor.reset(os::CreateThread(nullptr, 0, &SupervisorThread, nullptr, 0, nullptr));
            Answer(supervisor ? "started" : "not started");
        } else if (command == "post") {
            TheCommandQueue().Post(Command{static_cast<DWORD>(std::stoul(first, nullptr, 16)), FromUtf8(second)});
            Answer("posted");
        } else if (command == "wait") {
            DWORD const milliseconds = std::stoul(first);
            Answer(os::WaitForSingleObject(supervisor.get(), milliseconds) == WAIT_OBJECT_0 ? "ended" : "running");
        }
    }
    return 0;
}
