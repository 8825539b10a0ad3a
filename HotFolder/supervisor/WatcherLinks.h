// The service's side of the watcher control protocol: one open client end of a
// watcher's control pipe per link, keyed by the pipe name. A command is one
// 4-byte little-endian code written to the pipe; the watcher never answers.
#pragma once

#include "EventReporter.h"
#include "platform/Types.h"

#include <map>
#include <string>

namespace hf {

struct WatcherLink {
    HANDLE pipe;
    // Zero-filled at creation and never used for I/O: commands are plain writes.
    OVERLAPPED overlapped;
};

// Case-insensitive invariant-locale order; names that differ only in case are equal.
struct PipeNameLess {
    bool operator()(std::u16string const& a, std::u16string const& b) const;
};

// Equal names may repeat (two links to one watcher); a new link goes after
// the links of its name that already exist.
using WatcherLinks = std::multimap<std::u16string, WatcherLink, PipeNameLess>;

// Opens the named pipe, reports the outcome (49 or 51), records the link and
// writes `code` to it; a link whose first write fails is closed and dropped.
bool ConnectToWatcher(std::u16string const& name, WatcherLinks& links, EventReporter& events, DWORD code);

// Writes one code to one link; message 12 when the write fails.
bool WriteCommand(DWORD code, WatcherLinks::value_type const& link, EventReporter& events);

// Writes the code to every link in order, closing and dropping those that fail;
// a failure neither stops the broadcast nor is retried.
void BroadcastCommand(DWORD code, WatcherLinks& links, EventReporter& events);

// How many links carry this name, letter case aside.
std::size_t CountLinks(WatcherLinks const& links, std::u16string const& name);

}  // namespace hf
