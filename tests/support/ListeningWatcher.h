// A watcher's control pipe as the service sees it: one listening instance that reads whatever a client writes.
#pragma once

#include "platform/Files.h"
#include "platform/Pipes.h"
#include "platform/Process.h"
#include "platform/Types.h"

#include <string>
#include <vector>

namespace hf::test {

class ListeningWatcher {
public:
    // Creates one instance of `name` (a full \\.\pipe\ name) and waits for a client.
    explicit ListeningWatcher(std::u16string const& name)
        : pipe_(os::CreateNamedPipeW(name.c_str(), 0x40000003, 0, 255, 10240, 10240, 30000, nullptr))
    {
        os::ConnectNamedPipe(pipe_, &connect_);
    }
    ListeningWatcher(const ListeningWatcher&) = delete;
    ListeningWatcher& operator=(const ListeningWatcher&) = delete;

    // Reads once a client is there; what arrives counts when the reads complete (in an alertable wait or RunApcs).
    void Read()
    {
        read_.hEvent = this;  // reads leave it to the caller
        os::ReadFileEx(pipe_, buffer_, sizeof buffer_, &read_, &OnRead);
    }
    void Exit() { os::CloseHandle(pipe_); }  // the watcher process goes away
    std::vector<DWORD> Codes() const;        // what arrived, as 4-byte little-endian codes
    bool Broken() const { return broken_; }  // a read ended with an error (the client's end closed, say)

private:
    static void OnRead(DWORD error, DWORD bytes, OVERLAPPED* overlapped);

    HANDLE pipe_;
    OVERLAPPED connect_{};
    OVERLAPPED read_{};
    BYTE buffer_[64]{};
    std::vector<BYTE> received_;
    bool broken_ = false;
};

}  // namespace hf::test
