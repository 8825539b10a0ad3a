// The simulated processes: the one the product's code runs as (its command
// line, module path, account and owner SID) and the threads it starts.
#pragma once

#include "platform/Types.h"
#include "platform/sim/SimChildProcesses.h"

#include <map>
#include <string>

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
};

class Processes {
public:
    // The process that the code under test runs as.
    ProcessInfo current;
    // Threads created by CreateThread and the count of those that ran to the end.
    int threadsCreated = 0;
    int threadsFinished = 0;
    // The programs that exist and the processes started from them (CreateProcessW).
    ChildProcesses children;
};

}  // namespace hf::sim
