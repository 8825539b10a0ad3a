// The simulated processes: the one the product's code runs as (its command
// line, module path, account and owner SID), the threads it starts and the
// programs it starts.
#pragma once

#include "platform/MessageLoop.h"
#include "platform/Types.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace hf::sim {

class Object;

// A process started by CreateProcessW. Its process handle is a waitable object,
// signalled once the process has ended.
class ChildProcess : public std::enable_shared_from_this<ChildProcess> {
public:
    // The program ends with `code` (now, or `delay` ms from now if it still runs);
    // exit hooks run, so pipes it served break.
    void Exit(DWORD code, bool terminated = false);
    void ExitAfter(DWORD delay, DWORD code);
    void OnExit(std::function<void()> hook) { exitHooks_.push_back(std::move(hook)); }

    // As CreateProcessW was called.
    std::u16string applicationName;
    std::u16string commandLine;
    DWORD startupInfoSize = 0;              // STARTUPINFOW::cb
    std::u16string currentDirectory;        // empty when none was given
    std::optional<std::u16string> desktop;  // STARTUPINFOW::lpDesktop; nothing when it was null
    std::u16string userName;                // the account it runs as, DOMAIN\user

    bool running = true;
    bool terminated = false;  // ended by TerminateProcess
    DWORD exitCode = 0;

    // Handles to the process that the code under test holds open.
    int HandlesOpen() const;
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
    void AddImage(std::u16string const& path, ImageBehaviour behaviour = {})
    {
        images_.push_back(Image{path, std::move(behaviour)});
    }

    // Every process started, in order.
    std::vector<std::shared_ptr<ChildProcess>> const& Started() const { return started_; }

    // Starts a process of the image at `path` (null when there is none); `describe`
    // fills in how it was called before the image's behaviour runs.
    std::shared_ptr<ChildProcess> Start(std::u16string const& path,
                                        std::function<void(std::shared_ptr<ChildProcess> const&)> const& describe);

private:
    struct Image {
        std::u16string path;
        ImageBehaviour behaviour;
    };
    std::vector<Image> images_;
    std::vector<std::shared_ptr<ChildProcess>> started_;
};

struct ProcessInfo {
    std::u16string commandLine = u"\"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe\"";
    std::u16string modulePath = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";
    // The account in NameSamCompatible form; empty makes GetUserNameExW fail.
    std::u16string userName = u"OFFICE\\clerk";
    // The SID that owns the process object, as GetSecurityInfo returns it.
    std::u16string ownerSid = u"S-1-5-21-1004336348-1177238915-682003330-1001";
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

    // Each runs its thread to the end if it has not started yet and says whether it did.
    std::vector<std::function<bool()>> threadStarts;
    // Lets the first thread not started yet run to its end, as another thread
    // would while this one blocks; false when there is none.
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
