// Fuzz target: the watcher's control pipe. Clients of the simulated machine
// connect to the listening instances, write any bytes in any chunks, and go;
// the control readers read them 4 bytes at a time in completion routines that
// run in alertable waits, store each read into the command word, and close on
// errors. Reads can also be made to fail as they start.
//
// The input is a script of steps, each led by a byte `op`; the client it
// concerns is op / 16 (of those connected so far, at most 3). One client is
// connected before the script begins.
//   op % 5 == 0  the client writes (byte) bytes, the next ones of the input
//   op % 5 == 1  the watcher waits alertably: every queued completion runs
//   op % 5 == 2  the client closes its end
//   op % 5 == 3  one more client connects and is accepted
//   op % 5 == 4  the next read to start fails with an error (dword)
// At the end every client closes and the completions run.
//
// After every step the command word, the event log and the open handles are
// what the reader's rules make of the traffic so far, as a model of the byte
// pipe computes it: each read takes what has arrived, up to 4 bytes, and a read
// of n bytes leaves the previous command's bytes after the first n; a read
// that completes with an error reports message 44 and closes its pipe; a read
// that cannot start reports message 22 unless the client has gone (109), and
// leaves the pipe open.
#include "FuzzInput.h"
#include "FuzzSupport.h"
#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Sync.h"
#include "platform/sim/SimPipePeers.h"
#include "platform/sim/SimWorld.h"
#include "supervisor/Command.h"
#include "watcher/ControlPipe.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

namespace hf::fuzz {
namespace {

constexpr std::size_t kMaxClients = 3;
constexpr DWORD kReadSize = 4;

// What the rules expect of one connection.
struct ModelConnection {
    bool clientOpen = true;
    bool serverOpen = true;
    bool readPending = false;
    std::deque<BYTE> arrived;
    std::array<BYTE, kReadSize> buffer{};
};

// A completion routine queued for the watcher's thread.
struct ModelCompletion {
    std::size_t connection;
    DWORD error;
    std::vector<BYTE> bytes;
};

// The control reader's rules over a byte pipe.
class Model {
public:
    explicit Model(std::u16string name) : name_(std::move(name)) {}

    void Connect()
    {
        connections_.emplace_back();
        StartRead(connections_.size() - 1);
    }
    void Write(std::size_t c, std::string_view bytes)
    {
        ModelConnection& connection = connections_[c];
        if (!connection.clientOpen || !connection.serverOpen) {
            return;
        }
        connection.arrived.insert(connection.arrived.end(), bytes.begin(), bytes.end());
        Deliver(c);
    }
    void Close(std::size_t c)
    {
        ModelConnection& connection = connections_[c];
        if (!connection.clientOpen) {
            return;
        }
        connection.clientOpen = false;
        if (std::exchange(connection.readPending, false)) {
            queued_.push_back(ModelCompletion{c, ERROR_BROKEN_PIPE, {}});
        }
    }
    void FailNextRead(DWORD error) { failures_.push_back(error); }
    void RunCompletions()
    {
        while (!queued_.empty()) {
            ModelCompletion const completion = std::move(queued_.front());
            queued_.pop_front();
            ModelConnection& connection = connections_[completion.connection];
            if (completion.error == 0 && !completion.bytes.empty()) {
                std::copy(completion.bytes.begin(), completion.bytes.end(), connection.buffer.begin());
                std::memcpy(&commandWord_, connection.buffer.data(), kReadSize);
                StartRead(completion.connection);
                continue;
            }
            if (completion.error != ERROR_IO_PENDING) {
                Report(MSG_READ_PIPE_CALLBACK_ERROR, completion.error);
            }
            connection.serverOpen = false;
            connection.arrived.clear();
        }
    }

    DWORD CommandWord() const { return commandWord_; }
    std::vector<sim::EventRecord> const& Events() const { return events_; }
    ModelConnection const& Connection(std::size_t c) const { return connections_[c]; }

private:
    void StartRead(std::size_t c)
    {
        ModelConnection& connection = connections_[c];
        if (!failures_.empty()) {
            DWORD const error = failures_.front();
            failures_.pop_front();
            if (error != ERROR_BROKEN_PIPE) {
                Report(MSG_READ_FILE_FAILED, error);
            }
            return;
        }
        if (connection.arrived.empty() && !connection.clientOpen) {
            return;  // the client has gone: 109, not reported
        }
        connection.readPending = true;
        Deliver(c);
    }
    // A pending read takes what has arrived, up to its size.
    void Deliver(std::size_t c)
    {
        ModelConnection& connection = connections_[c];
        if (!connection.readPending || connection.arrived.empty()) {
            return;
        }
        std::size_t const count = std::min<std::size_t>(kReadSize, connection.arrived.size());
        std::vector<BYTE> bytes(connection.arrived.begin(), connection.arrived.begin() + count);
        connection.arrived.erase(connection.arrived.begin(), connection.arrived.begin() + count);
        connection.readPending = false;
        queued_.push_back(ModelCompletion{c, 0, std::move(bytes)});
    }
    void Report(DWORD id, DWORD error)
    {
        sim::EventRecord record;
        record.type = EVENTLOG_ERROR_TYPE;
        record.eventId = id;
        record.strings = {name_, DecimalText(static_cast<std::int32_t>(error))};
        events_.push_back(std::move(record));
    }

    std::u16string name_;
    std::vector<ModelConnection> connections_;
    std::deque<ModelCompletion> queued_;
    std::deque<DWORD> failures_;
    DWORD commandWord_ = CMD_STOP;
    std::vector<sim::EventRecord> events_;
};

// The watcher's side: its listening instances, the readers of accepted
// clients (owned here, where the watcher keeps them to the process's end),
// and its command word.
class ControlServer {
public:
    explicit ControlServer(FreshMachine& machine) : machine_(machine)
    {
        for (int i = 0; i < 2; ++i) {
            ListenOnPipe(CreateControlPipeInstance(name_), connects_);
        }
        handlesAtStart_ = sim::TheWorld().OpenHandleCount();
    }

    std::u16string const& Name() const { return name_; }
    DWORD CommandWord() const { return commandWord_; }
    std::size_t Accepted() const { return readers_.size(); }
    HANDLE PipeOf(std::size_t c) const { return readers_[c]->pipe; }
    std::size_t HandlesAtStart() const { return handlesAtStart_; }

    // The loop's wait sees the connect event of the instance the client took,
    // and the loop accepts it.
    void Accept()
    {
        std::vector<HANDLE> events;
        for (auto const& entry : connects_) {
            events.push_back(entry.second.overlapped.hEvent);
        }
        DWORD const result =
            os::WaitForMultipleObjectsEx(static_cast<DWORD>(events.size()), events.data(), FALSE, 0, TRUE);
        HF_FUZZ_CHECK(result < events.size(), "a connected client's instance is signalled");
        auto const record = connects_.find(reinterpret_cast<std::uintptr_t>(events[result]));
        os::CloseHandle(events[result]);
        HANDLE const pipe = record->second.pipe;
        connects_.erase(record);

        readers_.push_back(StartControlReader(pipe, events_, commandWord_, name_));
        ListenOnPipe(CreateControlPipeInstance(name_), connects_);
    }

    void RunCompletions() { machine_.RunCompletions(); }

private:
    FreshMachine& machine_;
    EventReporter events_{kCategoryUser};
    std::u16string const name_ = WatcherPipeName();
    PendingConnects connects_;
    std::vector<std::unique_ptr<ControlPipeReader>> readers_;
    DWORD commandWord_ = CMD_STOP;
    std::size_t handlesAtStart_ = 0;
};

std::string Hex(DWORD value)
{
    return ToUtf8(HexText(value));
}

void Check(ControlServer const& server, Model const& model)
{
    HF_FUZZ_CHECK(server.CommandWord() == model.CommandWord(),
                  Hex(server.CommandWord()) + " instead of " + Hex(model.CommandWord()));
    auto const& events = sim::TheWorld().eventLog.Records();
    HF_FUZZ_CHECK(events.size() == model.Events().size(),
                  std::to_string(events.size()) + " events instead of " + std::to_string(model.Events().size()));
    for (std::size_t i = 0; i < events.size(); ++i) {
        sim::EventRecord const& expected = model.Events()[i];
        HF_FUZZ_CHECK(events[i].type == expected.type && events[i].eventId == expected.eventId &&
                          events[i].strings == expected.strings,
                      Describe(events[i]) + " instead of " + Describe(expected));
    }
    std::size_t closed = 0;
    for (std::size_t c = 0; c < server.Accepted(); ++c) {
        bool const open = sim::TheWorld().Lookup(server.PipeOf(c)) != nullptr;
        HF_FUZZ_CHECK(open == model.Connection(c).serverOpen, "connection " + std::to_string(c) + "'s pipe handle");
        closed += open ? 0 : 1;
    }
    // Each accept closes the instance's event and opens a new instance and its event.
    HF_FUZZ_CHECK(sim::TheWorld().OpenHandleCount() == server.HandlesAtStart() + server.Accepted() - closed,
                  "no handle is left behind");
}

}  // namespace
}  // namespace hf::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace hf;
    using namespace hf::fuzz;
    FuzzInput input(data, size);
    FreshMachine machine;
    ControlServer server(machine);
    Model model(server.Name());
    std::vector<std::shared_ptr<sim::ScriptedPipeClient>> clients;
    auto connect = [&] {
        clients.push_back(sim::ScriptedPipeClient::Create());
        HF_FUZZ_CHECK(clients.back()->Open(server.Name()), "a client finds a listening instance");
        server.Accept();
        model.Connect();
    };
    connect();
    Check(server, model);
    while (!input.Empty()) {
        BYTE const op = input.Byte();
        std::size_t const c = (op / 16u) % clients.size();
        switch (op % 5) {
            case 0: {
                std::string_view const bytes = input.Bytes(input.Byte());
                clients[c]->Write(std::vector<BYTE>(bytes.begin(), bytes.end()));
                model.Write(c, bytes);
                break;
            }
            case 1:
                server.RunCompletions();
                model.RunCompletions();
                break;
            case 2:
                clients[c]->Close();
                model.Close(c);
                break;
            case 3:
                if (clients.size() < kMaxClients) {
                    connect();
                }
                break;
            default: {
                DWORD const error = input.Dword();
                sim::TheWorld().faults.Fail("ReadFileEx", error);
                model.FailNextRead(error);
                break;
            }
        }
        Check(server, model);
    }
    for (std::size_t c = 0; c < clients.size(); ++c) {
        clients[c]->Close();
        model.Close(c);
    }
    server.RunCompletions();
    model.RunCompletions();
    Check(server, model);
    return 0;
}
