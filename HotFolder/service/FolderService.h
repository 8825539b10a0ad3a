// FolderService, the one COM class that the service serves: the door through
// which user-side tools record, query and forget the users whose hot folders
// the service runs, and through which every watcher announces its control
// pipe. An object keeps no state: users live in the installed-user store, and
// an announcement becomes CMD_CONNECT on the command queue.
#pragma once

#include "platform/Com.h"

namespace hf {

// The class object that the service module publishes (one per process).
// Objects are aggregatable and count their references without atomics.
os::IClassFactory* FolderServiceClassObject();

// Lets go of what the class keeps between objects (its type description);
// called when the module ends.
void EndFolderServiceClass();

}  // namespace hf
