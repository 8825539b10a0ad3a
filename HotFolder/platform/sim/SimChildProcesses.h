// The programs the simulated machine can start and the processes started from
// them. A test declares the executables that exist (CreateProcessW of any other
// path fails with ERROR_FILE_NOT_FOUND) and may attach behaviour to an image:
// the behaviour runs when a process of that image starts and typically
// schedules what the program does later (serve a pipe, exit).
#pragma once

#include "platform/Types.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hf::sim {

class Object;

// One started process. Its process handle is a waitable object, signalled once
// the process has ended.
class ChildProcess : public std::enable_shared_from_this<ChildProcess> {
public:
    // The program ends by itself with `code` (now, or `delay` ms from now if it is
    // still running then). Exit hooks run, so pipes it served break.
    void Exit(DWORD code);
    void ExitAfter(DWORD delay, DWORD code);
    // Runs `hook` when the process ends, by itself or by TerminateProcess.
    void OnExit(std::function<void()> hook);
    // Ends the process as TerminateProcess does.
    void Terminate(DWORD code);

    // As CreateProcessW was called.
    std::u16string applicationName;  // empty when none was given
    std::u16string commandLine;
    std::u16string imagePath;  // the image that runs, as it was declared
    BOOL inheritHandles = 0;
    DWORD creationFlags = 0;
    DWORD startupInfoSize = 0;              // STARTUPINFOW::cb
    std::u16string currentDirectory;        // empty when none was given
    std::optional<std::u16string> desktop;  // STARTUPINFOW::lpDesktop; nothing when it was null
    std::u16string userName;                // the account it runs as, DOMAIN\user
    DWORD processId = 0;

    bool running = true;
    bool terminated = false;  // ended by TerminateProcess
    DWORD exitCode = 0;

    // Handles to the process that the code under test holds open.
    int HandlesOpen() const;
    // Backend: the kernel object behind the process handles.
    std::weak_ptr<Object> kernelObject;

private:
    std::vector<std::function<void()>> exitHooks_;
};

// What a test attaches to an image; gets the process that has just started.
using ImageBehaviour = std::function<void(std::shared_ptr<ChildProcess> const&)>;

class ChildProcesses {
public:
    // Declares an executable that exists on the machine (full path, compared without
    // regard to ASCII case) and, optionally, what each of its processes does.
    void AddImage(std::u16string const& path, ImageBehaviour behaviour = {});
    bool HasImage(std::u16string const& path) const;

    // Every process started, in order.
    std::vector<std::shared_ptr<ChildProcess>> const& Started() const { return started_; }
    // The processes started from one image, in order.
    std::vector<std::shared_ptr<ChildProcess>> StartedFrom(std::u16string const& path) const;

    // Backend: starts a process of the image at `path`; null with `error` set when no
    // such image exists. The backend fills in how it was called, then runs the image's
    // behaviour.
    std::shared_ptr<ChildProcess> Start(std::u16string const& path, DWORD& error);
    void RunBehaviour(std::shared_ptr<ChildProcess> const& process) const;

private:
    struct Image {
        std::u16string path;
        ImageBehaviour behaviour;
    };
    Image const* FindImage(std::u16string const& path) const;

    std::vector<Image> images_;
    std::vector<std::shared_ptr<ChildProcess>> started_;
    DWORD nextProcessId_ = 5000;
};

}  // namespace hf::sim
