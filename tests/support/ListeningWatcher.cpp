#include "ListeningWatcher.h"

namespace hf::test {

std::vector<DWORD> ListeningWatcher::Codes() const
{
    std::vector<DWORD> codes(received_.size() / 4);
    for (std::size_t at = 0; at < codes.size() * 4; ++at) {
        codes[at / 4] |= DWORD{received_[at]} << (at % 4 * 8);
    }
    return codes;
}

void ListeningWatcher::OnRead(DWORD error, DWORD bytes, OVERLAPPED* overlapped)
{
    auto& watcher = *static_cast<ListeningWatcher*>(overlapped->hEvent);
    if (error != 0) {
        watcher.broken_ = true;
        return;
    }
    watcher.received_.insert(watcher.received_.end(), watcher.buffer_, watcher.buffer_ + bytes);
    watcher.Read();
}

}  // namespace hf::test
