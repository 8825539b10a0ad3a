#include "supervisor/WatcherLinks.h"

#include "platform/Constants.h"
#include "platform/Files.h"
#include "platform/Paths.h"
#include "platform/Process.h"

#include <array>

namespace hf {

bool PipeNameLess::operator()(std::u16string const& a, std::u16string const& b) const
{
    return os::CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, a.c_str(), static_cast<int>(a.size()), b.c_str(),
                              static_cast<int>(b.size())) == CSTR_LESS_THAN;
}

bool ConnectToWatcher(std::u16string const& name, WatcherLinks& links, EventReporter& events, DWORD code)
{
    // No WaitNamedPipe and no retry: a pipe whose instances are all busy counts
    // as missing, and the watcher's next announcement brings it back.
    HANDLE const pipe = os::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_OVERLAPPED, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_CONNECT_TO_PIPE_FAILED, {name, LastErrorText()});
        return false;
    }
    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_CONNECTED_TO_WATCHER_PIPE, {name});
    auto const link = links.insert({name, WatcherLink{pipe, OVERLAPPED{}}});
    if (!WriteCommand(code, *link, events)) {
        os::CloseHandle(pipe);
        links.erase(link);
        return false;
    }
    return true;
}

bool WriteCommand(DWORD code, WatcherLinks::value_type const& link, EventReporter& events)
{
    std::array<BYTE, 4> const bytes = {static_cast<BYTE>(code), static_cast<BYTE>(code >> 8),
                                       static_cast<BYTE>(code >> 16), static_cast<BYTE>(code >> 24)};
    // A plain write although the handle is overlapped: four bytes fit the
    // watcher's pipe buffer, so the write completes at once.
    DWORD written = 0;
    if (!os::WriteFile(link.second.pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_WRITE_PIPE_FAILED, {link.first, LastErrorText()});
        return false;
    }
    return true;
}

void BroadcastCommand(DWORD code, WatcherLinks& links, EventReporter& events)
{
    for (auto link = links.begin(); link != links.end();) {
        if (WriteCommand(code, *link, events)) {
            ++link;
            continue;
        }
        // A watcher that has exited is noticed here, and forgotten.
        os::CloseHandle(link->second.pipe);
        link = links.erase(link);
    }
}

std::size_t CountLinks(WatcherLinks const& links, std::u16string const& name)
{
    return links.count(name);
}

}  // namespace hf
