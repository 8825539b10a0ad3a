// Starting a watcher process for each installed user who has none: the user's
// sealed password is opened, the user logged on with it, and the executable
// started as that user with -asservice. The service lets go of the process at
// once; the watcher announces its control pipe itself.
#pragma once

#include "EventReporter.h"
#include "platform/Types.h"
#include "supervisor/LogonProcessCreator.h"
#include "supervisor/WatcherLinks.h"

#include <string>
#include <vector>

namespace hf {

// For each user in order: a user whose value cannot be read, or whose watcher
// pipe is already linked (letter case aside), is skipped without a report;
// every other user is launched. A failed launch never stops the pass.
void LaunchWatchers(std::vector<std::u16string> const& users, HKEY storeKey, WatcherLinks const& links,
                    EventReporter& events);

// Opens the password, logs the user on and starts the watcher; the password
// and the opened blob are wiped, the profile unloaded and the token closed
// before it returns. True when a process was created.
bool LaunchWatcherForUser(std::u16string const& user, BYTE* blob, DWORD blobSize, EventReporter& events);

// Starts "<executable's file name> -asservice" in the executable's folder
// through `creator` (message 20 before, message 10 on failure) and closes the
// new process's handles at once.
bool LaunchWatcherProcess(ProcessCreator& creator, std::u16string const& user, EventReporter& events);

}  // namespace hf
