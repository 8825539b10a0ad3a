#include "ListeningWatcher.h"

#include "platform/Constants.h"
#include "platform/Files.h"
#include "platform/Pipes.h"
#include "platform/Process.h"

namespace hf::test {

ListeningWatcher::ListeningWatcher(std::u16string const& name)
{
    pipe_ = os::CreateNamedPipeW(name.c_str(), 0x40000003, 0, 255, 10240, 10240, 30000, nullptr);
    os::ConnectNamedPipe(pipe_, &connect_);
}

void ListeningWatcher::Read()
{
    read_.hEvent = this;
    os::ReadFileEx(pipe_, buffer_, sizeof buffer_, &read_, &OnRead);
}

void ListeningWatcher::Exit()
{
    os::CloseHandle(pipe_);
}

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
