// The process-wide module object of the service role: it decides between
// running as the Windows service and as a plain COM local server, talks to the
// service control manager and publishes the FolderService class.
#pragma once

#include "platform/Types.h"

namespace hf {

class CHotFolderModule {
public:
    CHotFolderModule();

    // True when the module's static initialisation failed; the entry then ends with -1.
    bool InitializationFailed() const { return initializationFailed_; }

    // Runs the service (or the local server) to its end; 0 on success, else a
    // Win32 error code or HRESULT.
    LONG Start(int showWindow);

    // Written by the entry when it starts the supervisor thread; nothing reads it.
    DWORD supervisorThreadId = 0;

private:
    bool initializationFailed_ = false;
};

// The one module of the process.
CHotFolderModule& TheModule();

}  // namespace hf
