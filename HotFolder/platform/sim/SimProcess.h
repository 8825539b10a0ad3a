// The simulated processes: the one the product's code runs as (its command
// line, module path, account and owner SID) and the threads it starts.
#pragma once

#include "platform/MessageLoop.h"
#include "platform/Types.h"
#include "platform/sim/SimChildProcesses.h"

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace hf::sim {

struct ProcessInfo {
    std::u16string commandLine = u"\"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe\"";
    std::u16string modulePath = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";
    // The account in NameSamCompatible form; empty makes GetUserNameExW fail.
    std::u16string userName = u"OFFICE\\clerk";
    // The SID that owns the process object, as GetSecurityInfo returns it.
    std::u16string ownerSid = u"S-1-5-21-1004336348-1177238915-682003330-1001";
    DWORD processId = 4242;
    // The executable's string table (LoadStringW).
    std::map<unsigned, std::u16string> stringResources = {{100, u"Tarnwick Hot Folders"}};
    // The executable's other resources by type name and id (FindResourceW).
    std::map<std::pair<std::u16string, unsigned>, std::vector<BYTE>> resources;
    // What the process wrote to its standard output (GetStdHandle, WriteFile).
    std::string standardOutput;
};

// A message box the process showed (MessageBoxW); the simulated user presses OK.
struct MessageBoxRecord {
    std::u16string text;
    std::u16string caption;
    unsigned type = 0;
};

// The thread that the simulated process starts on.
constexpr DWORD kMainThreadId = 1;

class Processes {
public:
    // The process that the code under test runs as.
    ProcessInfo current;
    // Threads created by CreateThread and the count of those that ran to the end.
    int threadsCreated = 0;
    int threadsFinished = 0;
    // The programs that exist and the processes started from them (CreateProcessW).
    ChildProcesses children;

    // The thread whose code runs now, the threads' message queues (a thread gets
    // one when it first calls GetMessageW), and the message boxes shown.
    DWORD currentThreadId = kMainThreadId;
    std::map<DWORD, std::deque<os::MSG>> messageQueues;
    std::vector<MessageBoxRecord> messageBoxes;
    HANDLE standardOutput = nullptr;

    // Starts of the threads created so far: each runs its thread to the end if it
    // has not started yet and says whether it did.
    std::vector<std::function<bool()>> threadStarts;
    // Lets the first thread that has not started yet run to its end, as another
    // thread would while this one blocks; false when there is none.
    bool RunUnstartedThread()
    {
        for (auto& start : threadStarts) {
            if (start()) {
                return true;
            }
        }
        return false;
    }
};

}  // namespace hf::sim
