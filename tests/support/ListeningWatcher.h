// A watcher's control pipe as the service sees it: one listening instance that
// reads whatever a client writes, for the service-side suites.
#pragma once

#include "platform/Types.h"

#include <string>
#include <vector>

namespace hf::test {

class ListeningWatcher {
public:
    // Creates one instance of `name` (a full \\.\pipe\ name) and waits for a client.
    explicit ListeningWatcher(std::u16string const& name);
    ListeningWatcher(const ListeningWatcher&) = delete;
    ListeningWatcher& operator=(const ListeningWatcher&) = delete;

    // Starts reading once a client is there; what arrives counts in Codes()
    // when the reads complete (in an alertable wait, or the test's RunApcs).
    void Read();
    // The watcher process goes away.
    void Exit();
    // What arrived, as 4-byte little-endian codes.
    std::vector<DWORD> Codes() const;
    // A read ended with an error (the client's end closed, say).
    bool Broken() const { return broken_; }

private:
    static void OnRead(DWORD error, DWORD bytes, OVERLAPPED* overlapped);

    HANDLE pipe_ = nullptr;
    OVERLAPPED connect_{};
    OVERLAPPED read_{};  // its hEvent, which reads leave alone, points back here
    BYTE buffer_[64]{};
    std::vector<BYTE> received_;
    bool broken_ = false;
};

}  // namespace hf::test
