#include "watcher/ControlPipe.h"

#include "WideText.h"

#include "acrobat/PipeNames.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Pipes.h"
#include "platform/Process.h"
#include "platform/Sync.h"

#include <cstring>
#include <memory>
#include <vector>

namespace hf {

namespace {

constexpr DWORD kPipeBufferSize = 10240;
constexpr DWORD kPipeDefaultTimeOut = 30000;
constexpr DWORD kCommandSize = 4;

// Readers are never freed while the process runs: a completion may still be
// queued for one whose pipe has just been closed. They are kept here, so they
// live exactly as long as the process.
std::vector<std::unique_ptr<ControlPipeReader>>& LivingReaders()
{
    static std::vector<std::unique_ptr<ControlPipeReader>> readers;
    return readers;
}

}  // namespace

std::u16string WatcherPipeName()
{
    return MakePipeName(kWatcherPipePrefix, GetCurrentUserName());
}

HANDLE CreateControlPipeInstance(std::u16string const& name)
{
    return os::CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, 0, PIPE_UNLIMITED_INSTANCES,
                                kPipeBufferSize, kPipeBufferSize, kPipeDefaultTimeOut, nullptr);
}

bool ListenOnPipe(HANDLE pipe, PendingConnects& pending)
{
    HANDLE const event = os::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    PendingConnect record{};
    record.overlapped.hEvent = event;
    record.pipe = pipe;
    auto const inserted = pending.emplace(reinterpret_cast<std::uintptr_t>(event), record).first;
    // Neither a failure nor a client that came first is acted on: that
    // instance's event never fires, and the other listening instance serves.
    os::ConnectNamedPipe(pipe, &inserted->second.overlapped);
    return true;
}

std::unique_ptr<ControlPipeReader> StartControlReader(HANDLE pipe, EventReporter& events, DWORD& commandWord,
                                                      std::u16string const& name)
{
    auto reader = std::make_unique<ControlPipeReader>();
    reader->overlapped = OVERLAPPED{};
    reader->pipe = pipe;
    reader->reporter = &events;
    std::memset(reader->buffer, 0, sizeof reader->buffer);
    reader->target = &commandWord;
    reader->name = name;
    ReadControlPipe(*reader);
    return reader;
}

void AcceptControlClient(HANDLE pipe, EventReporter& events, DWORD& commandWord, std::u16string const& name)
{
    LivingReaders().push_back(StartControlReader(pipe, events, commandWord, name));
}

bool ReadControlPipe(ControlPipeReader& reader)
{
    if (os::ReadFileEx(reader.pipe, reader.buffer, kCommandSize, &reader.overlapped, &OnControlPipeRead)) {
        return true;
    }
    // A client that left before the read began is no news; the handle stays
    // open either way.
    if (os::GetLastError() != ERROR_BROKEN_PIPE) {
        reader.reporter->Report(EVENTLOG_ERROR_TYPE, MSG_READ_FILE_FAILED, {reader.name, LastErrorText()});
    }
    return false;
}

void OnControlPipeRead(DWORD errorCode, DWORD bytesTransferred, OVERLAPPED* overlapped)
{
    auto& reader = *reinterpret_cast<ControlPipeReader*>(overlapped);
    if (errorCode == 0 && bytesTransferred != 0) {
        // The count is not compared with 4: a short read leaves the rest of the
        // previous command in the buffer, and that is what takes effect.
        std::memcpy(reader.target, reader.buffer, sizeof reader.buffer);
        ReadControlPipe(reader);
        return;
    }
    // 997 is closed quietly (and only 997, not the cancellation code 995).
    if (errorCode != ERROR_IO_PENDING) {
        reader.reporter->Report(EVENTLOG_ERROR_TYPE, MSG_READ_PIPE_CALLBACK_ERROR,
                                {reader.name, DecimalText(static_cast<std::int32_t>(errorCode))});
    }
    os::CloseHandle(reader.pipe);
}

}  // namespace hf
