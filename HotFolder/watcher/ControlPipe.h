// The watcher's control pipe server: the listening instances, and the readers
// that take 4-byte commands off connected instances into the watcher's command
// word. Everything runs on the watcher's one thread; connects are signalled
// through events the watcher loop waits on, reads complete in completion
// routines that run inside its alertable wait.
#pragma once

#include "EventReporter.h"
#include "platform/Types.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace hf {

inline constexpr char16_t kWatcherPipePrefix[] = u"Tarnwick_FolderWatcher_";

// One instance waiting for a client.
struct PendingConnect {
    OVERLAPPED overlapped;  // hEvent: the record's own manual-reset event
    HANDLE pipe;
};

// The listening instances, ordered by the numeric value of their event. The
// system keeps the address of each record's OVERLAPPED while its connect is
// outstanding, so the container is node-based: records never move.
using PendingConnects = std::map<std::uintptr_t, PendingConnect>;

// One connected instance. The OVERLAPPED comes first: the completion routine
// receives its address and treats it as the reader.
struct ControlPipeReader {
    OVERLAPPED overlapped;
    HANDLE pipe;
    EventReporter* reporter;
    BYTE buffer[4];  // the read target; not cleared between reads
    DWORD* target;   // the watcher's command word
    std::u16string name;
};

// \\.\pipe\Tarnwick_FolderWatcher_<DOMAIN_user> of the user the process runs as.
std::u16string WatcherPipeName();

// One more instance of the watcher pipe. The handle is not tested: an invalid
// one goes on to listen nowhere, and its event never fires.
HANDLE CreateControlPipeInstance(std::u16string const& name);

// Starts a connect on the instance; always true.
bool ListenOnPipe(HANDLE pipe, PendingConnects& pending);

// A reader for a connected instance, its first read started. Its owner keeps
// it as long as a completion may still come for it.
std::unique_ptr<ControlPipeReader> StartControlReader(HANDLE pipe, EventReporter& events, DWORD& commandWord,
                                                      std::u16string const& name);

// Takes over a connected instance: a reader that lives until the process ends,
// and its first read.
void AcceptControlClient(HANDLE pipe, EventReporter& events, DWORD& commandWord, std::u16string const& name);

// Starts one 4-byte read; false when it cannot start (reported unless the
// client already went away).
bool ReadControlPipe(ControlPipeReader& reader);

// The completion routine of that read.
void OnControlPipeRead(DWORD errorCode, DWORD bytesTransferred, OVERLAPPED* overlapped);

}  // namespace hf
