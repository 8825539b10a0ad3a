#include "platform/sim/SimPipes.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Sync.h"
#include "platform/sim/SimWorld.h"

#include <algorithm>
#include <utility>

namespace hf::sim {

namespace {

constexpr char16_t kPipePrefix[] = u"\\\\.\\pipe\\";
constexpr std::size_t kPipePrefixLength = sizeof(kPipePrefix) / sizeof(kPipePrefix[0]) - 1;
constexpr DWORD kPipeReadModeMessage = 2;

bool IsPipeName(std::u16string const& name)
{
    return name.size() > kPipePrefixLength &&
           EqualsIgnoringAsciiCase(std::u16string_view(name).substr(0, kPipePrefixLength), kPipePrefix);
}

// A handle's view of one end of a pipe instance. The end closes with the
// handle; a client end and a server end each have their own object.
class PipeEndObject : public IoObject {
public:
    PipeEndObject(std::shared_ptr<PipeInstance> instance, PipeSide side) : instance(std::move(instance)), side(side) {}
    BOOL ReadEx(void* buffer, DWORD size, OVERLAPPED* overlapped, LPOVERLAPPED_COMPLETION_ROUTINE routine) override
    {
        return instance->ReadEx(side, buffer, size, overlapped, routine);
    }
    BOOL WriteEx(const void* buffer, DWORD size, OVERLAPPED* overlapped,
                 LPOVERLAPPED_COMPLETION_ROUTINE routine) override
    {
        return instance->WriteEx(side, buffer, size, overlapped, routine);
    }
    BOOL Write(const void* buffer, DWORD size, DWORD* written) override
    {
        return instance->Write(side, buffer, size, written);
    }
    void OnClose() override { instance->Close(side); }

    std::shared_ptr<PipeInstance> instance;
    PipeSide side;
};

}  // namespace

// --- one instance ------------------------------------------------------------------

BOOL PipeInstance::ReadEx(PipeSide side, void* buffer, DWORD size, OVERLAPPED* overlapped,
                          LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    if (side == PipeSide::Server && !clientCame_) {
        os::SetLastError(ERROR_PIPE_LISTENING);
        return FALSE;
    }
    if (inbound_[Index(side)].empty() && !IsOpen(Other(side))) {
        os::SetLastError(ERROR_BROKEN_PIPE);
        return FALSE;
    }
    reads_[Index(side)].push_back(PendingRead{static_cast<BYTE*>(buffer), size, overlapped, routine});
    Deliver(side);
    return TRUE;
}

DWORD PipeInstance::WriteBlocker(PipeSide side) const
{
    if (side == PipeSide::Server && !clientCame_) {
        return ERROR_PIPE_LISTENING;
    }
    if (!IsOpen(Other(side))) {
        return ERROR_NO_DATA;
    }
    return 0;
}

BOOL PipeInstance::Write(PipeSide side, const void* buffer, DWORD size, DWORD* written)
{
    if (DWORD const blocker = WriteBlocker(side)) {
        os::SetLastError(blocker);
        return FALSE;
    }
    auto const* bytes = static_cast<const BYTE*>(buffer);
    PipeSide const reader = Other(side);
    inbound_[Index(reader)].insert(inbound_[Index(reader)].end(), bytes, bytes + size);
    if (written) {
        *written = size;
    }
    if (size > 0) {
        Deliver(reader);
        if (onArrival[Index(reader)]) {
            onArrival[Index(reader)]();
        }
    }
    return TRUE;
}

BOOL PipeInstance::WriteEx(PipeSide side, const void* buffer, DWORD size, OVERLAPPED* overlapped,
                           LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    if (DWORD const blocker = WriteBlocker(side)) {
        os::SetLastError(blocker);
        return FALSE;
    }
    // The bytes fit the pipe's buffer at once, so the write is done; its
    // routine still runs only in a later alertable wait.
    Complete(PendingRead{nullptr, size, overlapped, routine}, 0, size);
    return Write(side, buffer, size, nullptr);
}

BOOL PipeInstance::Connect(OVERLAPPED* overlapped)
{
    if (clientCame_) {
        os::SetLastError(IsOpen(PipeSide::Client) ? ERROR_PIPE_CONNECTED : ERROR_NO_DATA);
        return FALSE;
    }
    if (overlapped != nullptr) {
        connectPending_ = true;
        connectEvent_ = overlapped->hEvent;
        os::SetLastError(ERROR_IO_PENDING);
        return FALSE;
    }
    DWORD const result = TheWorld().Wait([this] { return clientCame_; }, INFINITE, false);
    return result == WAIT_OBJECT_0 ? TRUE : FALSE;
}

void PipeInstance::AcceptClient()
{
    clientCame_ = true;
    open_[Index(PipeSide::Client)] = true;
    SignalConnect();
    if (onClientCame) {
        onClientCame();
    }
}

void PipeInstance::Close(PipeSide side)
{
    if (!IsOpen(side)) {
        return;
    }
    open_[Index(side)] = false;
    inbound_[Index(side)].clear();
    for (auto const& read : std::exchange(reads_[Index(side)], {})) {
        Complete(read, ERROR_OPERATION_ABORTED, 0);
    }
    if (side == PipeSide::Server) {
        SignalConnect();
    }
    PipeSide const other = Other(side);
    for (auto const& read : std::exchange(reads_[Index(other)], {})) {
        Complete(read, ERROR_BROKEN_PIPE, 0);
    }
    if (onPeerClosed[Index(other)]) {
        onPeerClosed[Index(other)]();
    }
}

std::vector<BYTE> PipeInstance::TakeArrived(PipeSide side)
{
    auto& inbound = inbound_[Index(side)];
    std::vector<BYTE> bytes(inbound.begin(), inbound.end());
    inbound.clear();
    return bytes;
}

void PipeInstance::Deliver(PipeSide side)
{
    auto& inbound = inbound_[Index(side)];
    auto& reads = reads_[Index(side)];
    while (!reads.empty() && !inbound.empty()) {
        PendingRead const read = reads.front();
        reads.pop_front();
        auto const count = static_cast<DWORD>(std::min<std::size_t>(read.size, inbound.size()));
        std::copy_n(inbound.begin(), count, read.buffer);
        inbound.erase(inbound.begin(), inbound.begin() + count);
        Complete(read, 0, count);
    }
}

void PipeInstance::SignalConnect()
{
    if (std::exchange(connectPending_, false) && connectEvent_ != nullptr) {
        os::SetEvent(connectEvent_);
    }
}

// The OVERLAPPEDs are never written: an end may close because its process
// ended, when the memory behind them is gone (and the routines queued then
// are dropped with the process). Nothing reads them back.
void PipeInstance::Complete(PendingRead const& read, DWORD error, DWORD bytes)
{
    LPOVERLAPPED_COMPLETION_ROUTINE const routine = read.routine;
    OVERLAPPED* const overlapped = read.overlapped;
    TheWorld().QueueApc([routine, error, bytes, overlapped] {
        if (routine != nullptr) {
            routine(error, bytes, overlapped);
        }
    });
}

// --- the machine's pipes -------------------------------------------------------------

std::shared_ptr<PipeInstance> Pipes::CreateInstance(std::u16string const& name, DWORD pipeMode, DWORD maxInstances,
                                                    DWORD& error)
{
    if (!IsPipeName(name)) {
        error = ERROR_INVALID_NAME;
        return nullptr;
    }
    if ((pipeMode & (PIPE_TYPE_MESSAGE | kPipeReadModeMessage)) != 0) {
        error = ERROR_NOT_SUPPORTED;
        return nullptr;
    }
    if (maxInstances == 0 || maxInstances > PIPE_UNLIMITED_INSTANCES) {
        error = ERROR_INVALID_PARAMETER;
        return nullptr;
    }
    Prune();
    Pipe* pipe = Find(name);
    if (pipe == nullptr) {
        pipes_.push_back(Pipe{name, maxInstances, {}});
        pipe = &pipes_.back();
    } else if (pipe->maxInstances != PIPE_UNLIMITED_INSTANCES && pipe->instances.size() >= pipe->maxInstances) {
        error = ERROR_PIPE_BUSY;
        return nullptr;
    }
    auto instance = std::make_shared<PipeInstance>(pipe->name);
    pipe->instances.push_back(instance);
    return instance;
}

std::shared_ptr<PipeInstance> Pipes::Connect(std::u16string const& name, DWORD& error)
{
    Prune();
    Pipe* pipe = Find(name);
    if (pipe == nullptr) {
        error = ERROR_FILE_NOT_FOUND;
        return nullptr;
    }
    for (auto const& weak : pipe->instances) {
        auto instance = weak.lock();
        if (instance && instance->IsFree()) {
            instance->AcceptClient();
            return instance;
        }
    }
    error = ERROR_PIPE_BUSY;
    return nullptr;
}

HANDLE Pipes::OpenClient(std::u16string const& name, DWORD /*access*/, DWORD /*flags*/)
{
    DWORD error = 0;
    auto instance = Connect(name, error);
    if (!instance) {
        os::SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    return TheWorld().AddHandle(std::make_shared<PipeEndObject>(std::move(instance), PipeSide::Client));
}

HANDLE Pipes::CreateServer(std::u16string const& name, DWORD pipeMode, DWORD maxInstances)
{
    DWORD error = 0;
    auto instance = CreateInstance(name, pipeMode, maxInstances, error);
    if (!instance) {
        os::SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    return TheWorld().AddHandle(std::make_shared<PipeEndObject>(std::move(instance), PipeSide::Server));
}

std::shared_ptr<PipeInstance> Pipes::InstanceOf(HANDLE handle, PipeSide& side)
{
    auto end = TheWorld().LookupAs<PipeEndObject>(handle);
    if (!end) {
        return nullptr;
    }
    side = end->side;
    return end->instance;
}

std::vector<std::u16string> Pipes::Names() const
{
    std::vector<std::u16string> names;
    for (auto const& pipe : pipes_) {
        if (InstanceCount(pipe.name) > 0) {
            names.push_back(pipe.name.substr(kPipePrefixLength));
        }
    }
    return names;
}

int Pipes::InstanceCount(std::u16string const& name) const
{
    Pipe const* pipe = Find(name);
    if (pipe == nullptr) {
        return 0;
    }
    return static_cast<int>(std::count_if(pipe->instances.begin(), pipe->instances.end(), [](auto const& weak) {
        auto instance = weak.lock();
        return instance && instance->IsOpen(PipeSide::Server);
    }));
}

int Pipes::FreeCount(std::u16string const& name) const
{
    Pipe const* pipe = Find(name);
    if (pipe == nullptr) {
        return 0;
    }
    return static_cast<int>(std::count_if(pipe->instances.begin(), pipe->instances.end(), [](auto const& weak) {
        auto instance = weak.lock();
        return instance && instance->IsFree();
    }));
}

Pipes::Pipe* Pipes::Find(std::u16string const& name)
{
    for (auto& pipe : pipes_) {
        if (EqualsIgnoringAsciiCase(pipe.name, name)) {
            return &pipe;
        }
    }
    return nullptr;
}

Pipes::Pipe const* Pipes::Find(std::u16string const& name) const
{
    return const_cast<Pipes*>(this)->Find(name);
}

void Pipes::Prune()
{
    for (auto& pipe : pipes_) {
        auto& instances = pipe.instances;
        instances.erase(std::remove_if(instances.begin(), instances.end(),
                                       [](auto const& weak) {
                                           auto instance = weak.lock();
                                           return !instance || !instance->IsOpen(PipeSide::Server);
                                       }),
                        instances.end());
    }
    pipes_.erase(std::remove_if(pipes_.begin(), pipes_.end(), [](Pipe const& pipe) { return pipe.instances.empty(); }),
                 pipes_.end());
}

void Pipes::Clear()
{
    pipes_.clear();
    peers_.clear();
}

}  // namespace hf::sim
