// Peers that a test scripts in place of other programs on the simulated
// machine: a server of length-framed messages that answers each message with
// one byte (the Acrobat plug-in's side of its pipe), and a plain client (the
// service's side of a watcher's control pipe). A peer acts at virtual times,
// never inside a call of the code under test, as another process would.
#pragma once

#include "platform/Types.h"
#include "platform/sim/SimPipes.h"
#include "platform/sim/SimProcess.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace hf::sim {

class ScriptedPipeServer : public std::enable_shared_from_this<ScriptedPipeServer> {
public:
    // What the server does once it has read one message whole.
    struct Answer {
        bool breakPipe = false;  // closes the connection's server end instead of answering
        BYTE value = 1;
        DWORD delay = 0;  // ms between reading the message and acting
    };
    static Answer Reply(BYTE value, DWORD delay = 0) { return Answer{false, value, delay}; }
    static Answer Break() { return Answer{true, 0, 0}; }

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

    int Connections() const { return connections_; }
    // Each message as it arrived: its 4-byte little-endian length, then the payload.
    std::vector<std::vector<BYTE>> const& Frames() const { return frames_; }

    explicit ScriptedPipeServer(std::u16string name) : name_(std::move(name)) {}

private:
    struct Connection {
        std::shared_ptr<PipeInstance> instance;
        std::vector<BYTE> buffer;
    };
    void Listen();
    void Read(std::shared_ptr<Connection> const& connection);
    // Runs `act` `delay` ms from now if the server and the connection are still there then.
    static void Later(std::weak_ptr<ScriptedPipeServer> self, std::weak_ptr<Connection> connection, DWORD delay,
                      std::function<void(ScriptedPipeServer&, std::shared_ptr<Connection> const&)> act);

    std::u16string name_;
    bool serving_ = false;
    int connections_ = 0;
    std::vector<std::shared_ptr<Connection>> open_;
    std::deque<Answer> script_;
    std::vector<std::vector<BYTE>> frames_;
};

class ScriptedPipeClient {
public:
    // A client kept alive until the machine is reset.
    static std::shared_ptr<ScriptedPipeClient> Create();

    // Opens a free instance of the pipe `name` now; false when it cannot.
    bool Open(std::u16string const& name);
    // Writes now; false when the pipe is not open or the server's end has closed.
    bool Write(std::vector<BYTE> const& bytes);
    void Close();
    // Whether the server has closed its end of the instance this client opened.
    bool ServerClosed() const { return instance_ && !instance_->IsOpen(PipeSide::Server); }

private:
    std::shared_ptr<PipeInstance> instance_;
};

}  // namespace hf::sim
