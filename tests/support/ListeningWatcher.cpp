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
    reader_.owner = this;
    os::ReadFileEx(pipe_, reader_.buffer, sizeof reader_.buffer, &reader_.overlapped, &OnRead);
}

void ListeningWatcher::Exit()
{
    os::CloseHandle(pipe_);
}

std::vector<DWORD> ListeningWatcher::Codes() const
{
    std::vector<DWORD> codes;
    for (std::size_t at = 0; at + 4 <= received_.size(); at += 4) {
        codes.push_back(DWORD{received_[at]} | DWORD{received_[at + 1]} << 8 | DWORD{received_[at + 2]} << 16 |
                        DWORD{received_[at + 3]} << 24);
    }
    return codes;
}

void ListeningWatcher::OnRead(DWORD error, DWORD bytes, OVERLAPPED* overlapped)
{
    auto& reader = *reinterpret_cast<Reader*>(overlapped);
    if (error != 0) {
        reader.owner->broken_ = true;
        return;
    }
    reader.owner->received_.insert(reader.owner->received_.end(), reader.buffer, reader.buffer + bytes);
    reader.owner->Read();
}

std::vector<BYTE> CodeBytes(DWORD code)
{
    return {static_cast<BYTE>(code), static_cast<BYTE>(code >> 8), static_cast<BYTE>(code >> 16),
            static_cast<BYTE>(code >> 24)};
}

}  // namespace hf::test
