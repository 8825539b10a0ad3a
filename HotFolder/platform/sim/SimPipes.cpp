#include "platform/sim/SimPipes.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Pipes.h"
#include "platform/Sync.h"
#include "platform/sim/SimWorld.h"

#include <algorithm>
#include <utility>

namespace hf::sim {

namespace {

constexpr std::u16string_view kPipePrefix = u"\\\\.\\pipe\\";

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

HANDLE HandleOn(std::shared_ptr<PipeInstance> instance, PipeSide side, DWORD error)
{
    if (!instance) {
        os::SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    return TheWorld().AddHandle(std::make_shared<PipeEndObject>(std::move(instance), side));
}

}  // namespace

bool IsPipeName(std::u16string_view name)
{
    return name.size() > kPipePrefix.size() && EqualsIgnoringAsciiCase(name.substr(0, kPipePrefix.size()), kPipePrefix);
}

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

BOOL PipeInstance::Write(PipeSide side, const void* buffer, DWORD size, DWORD* written)
{
    if (side == PipeSide::Server && !clientCame_) {
        os::SetLastError(ERROR_PIPE_LISTENING);
        return FALSE;
    }
    if (!IsOpen(Other(side))) {
        os::SetLastError(ERROR_NO_DATA);
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
        if (reader == PipeSide::Server && onServerArrival) {
            onServerArrival();
        }
    }
    return TRUE;
}

BOOL PipeInstance::WriteEx(PipeSide side, const void* buffer, DWORD size, OVERLAPPED* overlapped,
                           LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    if (!Write(side, buffer, size, nullptr)) {
        return FALSE;
    }
    // The bytes fit the pipe's buffer at once, so the write is done; its
    // routine still runs only in a later alertable wait.
    Complete(PendingRead{nullptr, size, overlapped, routine}, 0, size);
    return TRUE;
}

BOOL PipeInstance::Connect(OVERLAPPED* overlapped)
{
    if (clientCame_) {
        os::SetLastError(IsOpen(PipeSide::Client) ? ERROR_PIPE_CONNECTED : ERROR_NO_DATA);
        return FALSE;
    }
    connectEvent_ = overlapped->hEvent;
    os::SetLastError(ERROR_IO_PENDING);
    return FALSE;
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
    for (auto const& read : std::exchange(reads_[Index(Other(side))], {})) {
        Complete(read, ERROR_BROKEN_PIPE, 0);
    }
    if (side == PipeSide::Client && onServerArrival) {
        onServerArrival();
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
    if (HANDLE const event = std::exchange(connectEvent_, nullptr)) {
        os::SetEvent(event);
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

std::shared_ptr<PipeInstance> Pipes::CreateInstance(std::u16string const& name, DWORD maxInstances, DWORD& error)
{
    if (!IsPipeName(name)) {
        error = ERROR_INVALID_NAME;
        return nullptr;
    }
    std::vector<std::shared_ptr<PipeInstance>> same;
    for (auto& instance : Open()) {
        if (EqualsIgnoringAsciiCase(instance->Name(), name)) {
            same.push_back(std::move(instance));
        }
    }
    if (!same.empty() && same.front()->MaxInstances() != PIPE_UNLIMITED_INSTANCES &&
        same.size() >= same.front()->MaxInstances()) {
        error = ERROR_PIPE_BUSY;
        return nullptr;
    }
    auto instance = std::make_shared<PipeInstance>(name, maxInstances);
    instances_.push_back(instance);
    return instance;
}

std::shared_ptr<PipeInstance> Pipes::Connect(std::u16string const& name, DWORD& error)
{
    error = ERROR_FILE_NOT_FOUND;
    for (auto const& instance : Open()) {
        if (EqualsIgnoringAsciiCase(instance->Name(), name)) {
            if (instance->IsFree()) {
                instance->AcceptClient();
                return instance;
            }
            error = ERROR_PIPE_BUSY;
        }
    }
    return nullptr;
}

HANDLE Pipes::OpenClient(std::u16string const& name)
{
    DWORD error = 0;
    auto instance = Connect(name, error);
    return HandleOn(std::move(instance), PipeSide::Client, error);
}

HANDLE Pipes::CreateServer(std::u16string const& name, DWORD maxInstances)
{
    DWORD error = 0;
    auto instance = CreateInstance(name, maxInstances, error);
    return HandleOn(std::move(instance), PipeSide::Server, error);
}

std::vector<std::u16string> Pipes::Names()
{
    std::vector<std::u16string> names;
    for (auto const& instance : Open()) {
        std::u16string const name = instance->Name().substr(kPipePrefix.size());
        if (std::none_of(names.begin(), names.end(), [&](auto const& n) { return EqualsIgnoringAsciiCase(n, name); })) {
            names.push_back(name);
        }
    }
    return names;
}

std::vector<std::shared_ptr<PipeInstance>> Pipes::Open()
{
    std::vector<std::shared_ptr<PipeInstance>> open;
    for (auto const& weak : instances_) {
        if (auto instance = weak.lock(); instance && instance->IsOpen(PipeSide::Server)) {
            open.push_back(std::move(instance));
        }
    }
    instances_.assign(open.begin(), open.end());
    return open;
}

void Pipes::Clear()
{
    instances_.clear();
    peers_.clear();
}

}  // namespace hf::sim

namespace hf::os {

HANDLE CreateNamedPipeW(const WCHAR* name, DWORD /*openMode*/, DWORD /*pipeMode*/, DWORD maxInstances,
                        DWORD /*outBufferSize*/, DWORD /*inBufferSize*/, DWORD /*defaultTimeOut*/,
                        void* /*securityAttributes*/)
{
    DWORD error = 0;
    if (sim::Injected("CreateNamedPipeW", error)) {
        return INVALID_HANDLE_VALUE;
    }
    return sim::TheWorld().pipes.CreateServer(name ? name : u"", maxInstances);
}

BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* overlapped)
{
    auto end = sim::TheWorld().LookupAs<sim::PipeEndObject>(pipe);
    if (!end || end->side != sim::PipeSide::Server) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return end->instance->Connect(overlapped);
}

}  // namespace hf::os
