// The simulated named pipes of the machine (\\.\pipe\...): server instances,
// client ends, the bytes in between.
//
// A pipe instance joins a server end and, once a client has opened it, a
// client end. The pipes are in byte mode: whatever one end writes is appended
// to the other end's inbound bytes at once, and a read takes what is there, up
// to the size asked, or waits for the next bytes. An end is held either by the
// code under test, through a handle (CreateNamedPipeW, CreateFileW), or by a
// scripted peer that stands for another process (SimPipePeers.h).
//
// What the other end's closing does, as Windows does it:
// - bytes already written stay readable; then reads fail, and pending reads
//   complete, with ERROR_BROKEN_PIPE (109) and 0 bytes;
// - writes fail with ERROR_NO_DATA (232);
// - ConnectNamedPipe on an instance whose client came and went fails with 232.
// Closing an end cancels its own pending reads: they complete with
// ERROR_OPERATION_ABORTED (995).
#pragma once

#include "platform/Types.h"

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace hf::sim {

enum class PipeSide { Server = 0, Client = 1 };

class PipeInstance {
public:
    PipeInstance(std::u16string name, DWORD maxInstances) : name_(std::move(name)), maxInstances_(maxInstances) {}

    std::u16string const& Name() const { return name_; }
    DWORD MaxInstances() const { return maxInstances_; }
    bool IsOpen(PipeSide side) const { return open_[Index(side)]; }
    // The server end is open and no client has come yet: a client may open it.
    bool IsFree() const { return IsOpen(PipeSide::Server) && !clientCame_; }

    // ReadFileEx / WriteFileEx on one end: the completion routine is queued for
    // the next alertable wait; FALSE with the last error when the call fails at once.
    BOOL ReadEx(PipeSide side, void* buffer, DWORD size, OVERLAPPED* overlapped,
                LPOVERLAPPED_COMPLETION_ROUTINE routine);
    BOOL WriteEx(PipeSide side, const void* buffer, DWORD size, OVERLAPPED* overlapped,
                 LPOVERLAPPED_COMPLETION_ROUTINE routine);
    // WriteFile: completes at once (the simulated pipe buffer never fills).
    BOOL Write(PipeSide side, const void* buffer, DWORD size, DWORD* written);
    // An overlapped ConnectNamedPipe on the server end: signals overlapped->hEvent
    // when a client opens.
    BOOL Connect(OVERLAPPED* overlapped);
    void AcceptClient();
    // The end's last handle is closed (or its peer's process ended).
    void Close(PipeSide side);

    // For a scripted server, which reads outside the completion-routine model,
    // and its notifications (run synchronously; the server schedules its reaction).
    std::vector<BYTE> TakeArrived(PipeSide side);
    std::function<void()> onClientCame;
    std::function<void()> onServerArrival;  // bytes arrived for the server end, or the client closed

private:
    struct PendingRead {
        BYTE* buffer;
        DWORD size;
        OVERLAPPED* overlapped;
        LPOVERLAPPED_COMPLETION_ROUTINE routine;
    };
    static std::size_t Index(PipeSide side) { return static_cast<std::size_t>(side); }
    static PipeSide Other(PipeSide side) { return side == PipeSide::Server ? PipeSide::Client : PipeSide::Server; }
    void Deliver(PipeSide side);
    static void Complete(PendingRead const& read, DWORD error, DWORD bytes);
    void SignalConnect();

    std::u16string name_;
    DWORD maxInstances_;
    std::array<bool, 2> open_ = {true, false};
    bool clientCame_ = false;
    HANDLE connectEvent_ = nullptr;  // of a pending overlapped ConnectNamedPipe
    std::array<std::deque<BYTE>, 2> inbound_;
    std::array<std::deque<PendingRead>, 2> reads_;
};

// Whether `name` is a full pipe name (\\.\pipe\ in any case, then a name).
bool IsPipeName(std::u16string_view name);

class Pipes {
public:
    // CreateNamedPipeW, without the handle: one more server instance of `name`
    // (a full \\.\pipe\ name). Null with `error` set: ERROR_INVALID_NAME for
    // any other name, ERROR_PIPE_BUSY when as many instances are open as the
    // first open instance of the name allows. Byte mode only.
    std::shared_ptr<PipeInstance> CreateInstance(std::u16string const& name, DWORD maxInstances, DWORD& error);
    // Opens the client end of a free instance; null with ERROR_FILE_NOT_FOUND when
    // no instance of the name is open, ERROR_PIPE_BUSY when none is free.
    std::shared_ptr<PipeInstance> Connect(std::u16string const& name, DWORD& error);
    // CreateFileW / CreateNamedPipeW: a handle on that end of the instance.
    HANDLE OpenClient(std::u16string const& name);
    HANDLE CreateServer(std::u16string const& name, DWORD maxInstances);

    // The pipe names the machine lists under \\.\pipe\* (without that prefix), in
    // the order of their oldest open instances.
    std::vector<std::u16string> Names();

    // Keeps a scripted peer alive for the rest of the test.
    void Keep(std::shared_ptr<void> peer) { peers_.push_back(std::move(peer)); }
    void Clear();

private:
    // The instances whose server end is open, in the order they were created.
    std::vector<std::shared_ptr<PipeInstance>> Open();

    std::vector<std::weak_ptr<PipeInstance>> instances_;
    std::vector<std::shared_ptr<void>> peers_;
};

}  // namespace hf::sim
