// The watcher's one connection to the Acrobat plug-in: it starts Acrobat when
// the plug-in's pipe is missing, waits for the pipe to appear, writes one job
// message at a time, reads the plug-in's one-byte reply, retries a failed job
// once over a fresh connection, and, when the watcher runs as service,
// terminates the Acrobat that it started once it is no longer wanted.
//
// The watcher loop drives it on its one thread: Poll on every turn, SendJob
// when Poll has just said the link is idle. The write and the reply read
// complete in routines that run inside the loop's alertable wait; they find
// their link through overlapped.hEvent.
#pragma once

#include "EventReporter.h"
#include "platform/Types.h"
#include "platform/UniqueHandle.h"
#include "watcher/HotFolderSpec.h"

#include <cstdint>
#include <string>
#include <vector>

namespace hf {

// The longest wait for the plug-in's pipe, measured from Acrobat's launch.
constexpr DWORD kPlugInWaitLimit = 30000;
// The interval between attempts to open the plug-in's pipe after a launch.
constexpr DWORD kPlugInRetryInterval = 2000;

class PlugInLink {
public:
    enum State : std::int32_t {
        WaitingForPlugIn = 0,  // Acrobat launched, its plug-in's pipe not open yet
        Idle = 1,              // no job in flight
        Writing = 2,           // a job's write is outstanding
        AwaitingReply = 3,     // the reply's read is outstanding
    };

    PlugInLink(EventReporter& reporter, bool asService);
    // The watcher's teardown: the Acrobat process handle is closed (Acrobat
    // itself goes on running) and the plug-in pipe is left open for the
    // process's exit to close.
    ~PlugInLink();
    PlugInLink(const PlugInLink&) = delete;
    PlugInLink& operator=(const PlugInLink&) = delete;

    // True when the link is busy: the loop waits with `timeout` (INFINITE while
    // a write or read is outstanding, 2000 ms while the plug-in is awaited) and
    // hands on no job. False when it is idle; `timeout` is then not the loop's.
    bool Poll(DWORD& timeout);
    // Sends one job: the input file and the hot folder's script and output
    // folder. Launches Acrobat first when the plug-in's pipe cannot be opened;
    // a job whose launch fails is dropped.
    void SendJob(std::u16string const& inputPath, HotFolderSpecPtr const& spec);
    // Running as service: closes the pipe and terminates the Acrobat this
    // watcher started, if it holds one. Not as service it does nothing.
    void TerminateAcrobat();

private:
    bool PollForPlugIn(DWORD& timeout);
    // True when the pipe is open and can be written now.
    bool EnsureConnected();
    void StartWrite();
    static void OnWriteDone(DWORD error, DWORD bytes, OVERLAPPED* overlapped);
    static void OnReplyRead(DWORD error, DWORD bytes, OVERLAPPED* overlapped);
    // The failure rule of a write or read; the error and byte count are not examined.
    void OnLinkFailure(DWORD error, DWORD bytes);

    std::int32_t state_ = Idle;
    EventReporter* reporter_;
    // The current job's framed message, kept so a retry or a write after a
    // launch sends the same bytes.
    std::vector<BYTE> message_;
    // Serves the write and then the reply read; hEvent holds this link.
    OVERLAPPED overlapped_{};
    UniqueFileHandle pipe_;
    // A failure of the current job may be retried once over a fresh connection.
    bool retryAllowed_ = false;
    BYTE reply_ = 0;
    // The Acrobat this watcher started and still holds.
    UniqueKernelHandle process_;
    DWORD launchTick_ = 0;
    bool asService_;
};

}  // namespace hf
