// The simulated named pipes of the machine (\\.\pipe\...): server instances,
// client ends, the bytes in between, and peers that a test scripts.
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
#include <vector>

namespace hf::sim {

enum class PipeSide { Server = 0, Client = 1 };

class PipeInstance {
public:
    explicit PipeInstance(std::u16string name) : name_(std::move(name)) {}

    std::u16string const& Name() const { return name_; }
    bool IsOpen(PipeSide side) const { return open_[Index(side)]; }
    // A client has opened this instance (and may have closed it since).
    bool ClientCame() const { return clientCame_; }
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
    // ConnectNamedPipe on the server end (overlapped: signals overlapped->hEvent
    // when a client opens; null: waits for one).
    BOOL Connect(OVERLAPPED* overlapped);
    // A client opens the instance (CreateFileW or a scripted client).
    void AcceptClient();
    // The end's last handle is closed (or its peer's process ended).
    void Close(PipeSide side);

    // For scripted peers, which read outside the completion-routine model.
    std::vector<BYTE> TakeArrived(PipeSide side);
    std::size_t Arrived(PipeSide side) const { return inbound_[Index(side)].size(); }

    // Peer notifications (run synchronously; peers schedule their reaction).
    std::function<void()> onClientCame;
    std::array<std::function<void()>, 2> onArrival;     // bytes arrived for that side
    std::array<std::function<void()>, 2> onPeerClosed;  // the other side closed

private:
    struct PendingRead {
        BYTE* buffer;
        DWORD size;
        OVERLAPPED* overlapped;
        LPOVERLAPPED_COMPLETION_ROUTINE routine;
    };
    static std::size_t Index(PipeSide side) { return static_cast<std::size_t>(side); }
    static PipeSide Other(PipeSide side) { return side == PipeSide::Server ? PipeSide::Client : PipeSide::Server; }
    // Hands arrived bytes to the side's pending reads, oldest first.
    void Deliver(PipeSide side);
    static void Complete(PendingRead const& read, DWORD error, DWORD bytes);
    void SignalConnect();
    // Why `side` cannot transfer now (0 when it can).
    DWORD WriteBlocker(PipeSide side) const;

    std::u16string name_;
    std::array<bool, 2> open_ = {true, false};
    bool clientCame_ = false;
    // An overlapped ConnectNamedPipe waits; its event is signalled when it ends.
    bool connectPending_ = false;
    HANDLE connectEvent_ = nullptr;
    std::array<std::deque<BYTE>, 2> inbound_;
    std::array<std::deque<PendingRead>, 2> reads_;
};

class Pipes {
public:
    // CreateNamedPipeW, without the handle: one more server instance of `name`
    // (a full \\.\pipe\ name). Null with `error` set: ERROR_INVALID_NAME,
    // ERROR_PIPE_BUSY when `maxInstances` instances are open (the limit is the
    // one the first instance of the name was created with), ERROR_NOT_SUPPORTED
    // for message-type pipes, which the machine does not model.
    std::shared_ptr<PipeInstance> CreateInstance(std::u16string const& name, DWORD pipeMode, DWORD maxInstances,
                                                 DWORD& error);
    // Opens the client end of a free instance without a handle (scripted clients).
    // Null with `error` set: ERROR_FILE_NOT_FOUND when no instance of the name is
    // open, ERROR_PIPE_BUSY when none is free.
    std::shared_ptr<PipeInstance> Connect(std::u16string const& name, DWORD& error);

    // CreateFileW of a name under \\.\pipe\: a handle on the client end of a free instance.
    HANDLE OpenClient(std::u16string const& name, DWORD access, DWORD flags);
    // CreateNamedPipeW: a handle on the server end of a new instance.
    HANDLE CreateServer(std::u16string const& name, DWORD pipeMode, DWORD maxInstances);
    // The instance and side behind a pipe handle; null when the handle is not a pipe end.
    static std::shared_ptr<PipeInstance> InstanceOf(HANDLE handle, PipeSide& side);

    // The pipe names the machine lists under \\.\pipe\* (without that prefix), in
    // the order the pipes were first created.
    std::vector<std::u16string> Names() const;
    // Instances of `name` whose server end is open, and how many of those are free.
    int InstanceCount(std::u16string const& name) const;
    int FreeCount(std::u16string const& name) const;

    // Keeps a scripted peer alive for the rest of the test.
    void Keep(std::shared_ptr<void> peer) { peers_.push_back(std::move(peer)); }
    void Clear();

private:
    struct Pipe {
        std::u16string name;  // as first created
        DWORD maxInstances = 0;
        std::vector<std::weak_ptr<PipeInstance>> instances;
    };
    Pipe* Find(std::u16string const& name);
    Pipe const* Find(std::u16string const& name) const;
    // Forgets instances whose server end has closed, and pipes left without any.
    void Prune();

    std::vector<Pipe> pipes_;
    std::vector<std::shared_ptr<void>> peers_;
};

}  // namespace hf::sim
