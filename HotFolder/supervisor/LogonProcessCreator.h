// Starting a process: ProcessCreator says how, LogonProcessCreator starts it as
// an installed user, under that user's logon and with the user's profile.
#pragma once

#include "EventReporter.h"
#include "platform/Constants.h"
#include "platform/Process.h"
#include "platform/Types.h"
#include "supervisor/SecretText.h"

#include <string>

namespace hf {

// Creators live on the stack of the code that uses them and are never deleted
// through this class, so its destructor is protected and not virtual.
class ProcessCreator {
public:
    // The arguments and the result of CreateProcessW.
    virtual BOOL StartProcess(const WCHAR* applicationName, WCHAR* commandLine, void* processAttributes,
                              void* threadAttributes, BOOL inheritHandles, DWORD creationFlags, void* environment,
                              const WCHAR* currentDirectory, os::STARTUPINFOW* startupInfo,
                              os::PROCESS_INFORMATION* processInformation) = 0;

protected:
    ProcessCreator() = default;
    ~ProcessCreator() = default;
    ProcessCreator(const ProcessCreator&) = default;
    ProcessCreator& operator=(const ProcessCreator&) = default;
};

class LogonProcessCreator : public ProcessCreator {
public:
    LogonProcessCreator() = default;
    // Unloads the profile, then closes the token, whether or not a process was
    // started: a started process keeps running without them.
    ~LogonProcessCreator();
    LogonProcessCreator(const LogonProcessCreator&) = delete;
    LogonProcessCreator& operator=(const LogonProcessCreator&) = delete;

    // CreateProcessAsUserW with the logon token.
    BOOL StartProcess(const WCHAR* applicationName, WCHAR* commandLine, void* processAttributes, void* threadAttributes,
                      BOOL inheritHandles, DWORD creationFlags, void* environment, const WCHAR* currentDirectory,
                      os::STARTUPINFOW* startupInfo, os::PROCESS_INFORMATION* processInformation) override;

    // Logs `user` (DOMAIN\name, split at the first backslash) on interactively
    // and loads the user's profile. A failure is reported (message 9, 8 or 11)
    // and gives false; a token already obtained stays for the destructor.
    bool Logon(EventReporter& events, std::u16string const& user, SecretText const& password);

private:
    HANDLE token_ = INVALID_HANDLE_VALUE;
    HANDLE profile_ = INVALID_HANDLE_VALUE;
};

}  // namespace hf
