// Peers that a test scripts in place of other programs on the simulated
// machine: a server of length-framed messages that answers each message with
// one byte (the Acrobat plug-in's side of its pipe), and a plain client (the
// service's side of a watcher's control pipe). A peer acts at virtual times,
// never inside a call of the code under test, as another process would.
#pragma once

#include "platform/Types.h"
#include "platform/sim/SimChildProcesses.h"
#include "platform/sim/SimPipes.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace hf::sim {

class ScriptedPipeServer : public std::enable_shared_from_this<ScriptedPipeServer> {
public:
    // What the server does once it has read one message whole.
    struct Answer {
        enum class Kind { Byte, Nothing, BreakPipe };
        Kind kind = Kind::Byte;
        BYTE value = 1;
        DWORD delay = 0;  // ms between reading the message and acting
    };
    static Answer Reply(BYTE value, DWORD delay = 0) { return Answer{Answer::Kind::Byte, value, delay}; }
    static Answer NoReply() { return Answer{Answer::Kind::Nothing, 0, 0}; }
    // Closes the connection's server end without answering.
    static Answer Break(DWORD delay = 0) { return Answer{Answer::Kind::BreakPipe, 0, delay}; }

    // A server of the pipe `name` (a full \\.\pipe\ name), kept alive until the
    // machine is reset. It does nothing until it starts.
    static std::shared_ptr<ScriptedPipeServer> Create(std::u16string name);

    // Serving keeps one free instance at all times: a new one is created whenever
    // a client takes the free one. A client that closes its end has its
    // connection closed by the server as well.
    void Start();
    // Stops serving: every instance closes, so connected clients see a broken pipe.
    void Stop();
    // Serves from inside a program: starts `delay` ms after the process started,
    // if it still runs then, and stops when the process ends.
    void RunInside(std::shared_ptr<ChildProcess> const& process, DWORD delay);

    // The answer to the next message not yet answered by an earlier Then;
    // messages beyond the script get `defaultAnswer`.
    void Then(Answer answer) { script_.push_back(answer); }
    Answer defaultAnswer = Reply(1);

    bool Serving() const { return serving_; }
    int Connections() const { return connections_; }
    // Each message as it arrived: its 4-byte little-endian length, then the payload.
    std::vector<std::vector<BYTE>> const& Frames() const { return frames_; }
    // The payloads alone.
    std::vector<std::vector<BYTE>> Payloads() const;
    // Bytes received after the last whole message (a message cut short).
    std::size_t UnframedBytes() const;

    explicit ScriptedPipeServer(std::u16string name) : name_(std::move(name)) {}

private:
    struct Connection {
        std::shared_ptr<PipeInstance> instance;
        std::vector<BYTE> buffer;
    };
    void Listen();
    void Read(std::shared_ptr<Connection> const& connection);
    void Act(std::shared_ptr<Connection> const& connection, Answer answer);

    std::u16string name_;
    bool serving_ = false;
    int connections_ = 0;
    std::vector<std::shared_ptr<Connection>> open_;
    std::deque<Answer> script_;
    std::vector<std::vector<BYTE>> frames_;
};

class ScriptedPipeClient : public std::enable_shared_from_this<ScriptedPipeClient> {
public:
    // A client kept alive until the machine is reset.
    static std::shared_ptr<ScriptedPipeClient> Create();

    // Opens a free instance of the pipe `name` now; false when it cannot, with
    // the error CreateFileW would give (OpenError).
    bool Open(std::u16string const& name);
    DWORD OpenError() const { return openError_; }
    // Writes now; false when the pipe is not open or the server's end has closed.
    bool Write(std::vector<BYTE> const& bytes);
    void WriteAfter(DWORD delay, std::vector<BYTE> bytes);
    void Close();
    void CloseAfter(DWORD delay);

    // Everything the server has written to this client.
    std::vector<BYTE> const& Received() const { return received_; }
    bool ServerClosed() const { return instance_ && !instance_->IsOpen(PipeSide::Server); }

private:
    std::shared_ptr<PipeInstance> instance_;
    DWORD openError_ = 0;
    std::vector<BYTE> received_;
};

}  // namespace hf::sim
