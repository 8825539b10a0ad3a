#include "platform/sim/SimPipePeers.h"

#include "platform/Constants.h"
#include "platform/sim/SimWorld.h"

#include <algorithm>
#include <utility>

namespace hf::sim {

namespace {

constexpr std::size_t kLengthSize = 4;

DWORD LittleEndianLength(std::vector<BYTE> const& bytes)
{
    return static_cast<DWORD>(bytes[0]) | static_cast<DWORD>(bytes[1]) << 8 | static_cast<DWORD>(bytes[2]) << 16 |
           static_cast<DWORD>(bytes[3]) << 24;
}

}  // namespace

// --- the scripted server ---------------------------------------------------------------

std::shared_ptr<ScriptedPipeServer> ScriptedPipeServer::Create(std::u16string name)
{
    auto server = std::make_shared<ScriptedPipeServer>(std::move(name));
    TheWorld().pipes.Keep(server);
    return server;
}

void ScriptedPipeServer::Start()
{
    if (serving_) {
        return;
    }
    serving_ = true;
    Listen();
}

void ScriptedPipeServer::Stop()
{
    serving_ = false;
    for (auto const& connection : std::exchange(open_, {})) {
        connection->instance->Close(PipeSide::Server);
    }
}

void ScriptedPipeServer::RunInside(std::shared_ptr<ChildProcess> const& process, DWORD delay)
{
    std::weak_ptr<ScriptedPipeServer> weakSelf = weak_from_this();
    std::weak_ptr<ChildProcess> weakProcess = process;
    process->OnExit([weakSelf] {
        if (auto self = weakSelf.lock()) {
            self->Stop();
        }
    });
    TheWorld().After(delay, [weakSelf, weakProcess] {
        auto self = weakSelf.lock();
        auto running = weakProcess.lock();
        if (self && running && running->running) {
            self->Start();
        }
    });
}

void ScriptedPipeServer::Listen()
{
    DWORD error = 0;
    auto instance = TheWorld().pipes.CreateInstance(name_, PIPE_TYPE_BYTE, PIPE_UNLIMITED_INSTANCES, error);
    if (!instance) {
        return;
    }
    auto connection = std::make_shared<Connection>();
    connection->instance = instance;
    open_.push_back(connection);

    std::weak_ptr<ScriptedPipeServer> weakSelf = weak_from_this();
    std::weak_ptr<Connection> weakConnection = connection;
    instance->onClientCame = [weakSelf] {
        auto self = weakSelf.lock();
        if (self && self->serving_) {
            ++self->connections_;
            self->Listen();
        }
    };
    // The server reads at its own pace: in the machine's next turn, not inside
    // the client's write.
    instance->onArrival[static_cast<std::size_t>(PipeSide::Server)] = [weakSelf, weakConnection] {
        TheWorld().After(0, [weakSelf, weakConnection] {
            auto self = weakSelf.lock();
            auto connection = weakConnection.lock();
            if (self && connection) {
                self->Read(connection);
            }
        });
    };
    // A client that goes away leaves a broken connection, which the server closes.
    instance->onPeerClosed[static_cast<std::size_t>(PipeSide::Server)] = [weakSelf, weakConnection] {
        TheWorld().After(0, [weakSelf, weakConnection] {
            auto self = weakSelf.lock();
            auto connection = weakConnection.lock();
            if (!self || !connection) {
                return;
            }
            self->Read(connection);
            connection->instance->Close(PipeSide::Server);
            auto& open = self->open_;
            open.erase(std::remove(open.begin(), open.end(), connection), open.end());
        });
    };
}

void ScriptedPipeServer::Read(std::shared_ptr<Connection> const& connection)
{
    std::vector<BYTE> const arrived = connection->instance->TakeArrived(PipeSide::Server);
    auto& buffer = connection->buffer;
    buffer.insert(buffer.end(), arrived.begin(), arrived.end());
    while (buffer.size() >= kLengthSize && buffer.size() - kLengthSize >= LittleEndianLength(buffer)) {
        std::size_t const frameSize = kLengthSize + LittleEndianLength(buffer);
        frames_.emplace_back(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(frameSize));
        buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(frameSize));
        Answer answer = defaultAnswer;
        if (!script_.empty()) {
            answer = script_.front();
            script_.pop_front();
        }
        std::weak_ptr<ScriptedPipeServer> weakSelf = weak_from_this();
        std::weak_ptr<Connection> weakConnection = connection;
        TheWorld().After(answer.delay, [weakSelf, weakConnection, answer] {
            auto self = weakSelf.lock();
            auto live = weakConnection.lock();
            if (self && live) {
                self->Act(live, answer);
            }
        });
    }
}

void ScriptedPipeServer::Act(std::shared_ptr<Connection> const& connection, Answer answer)
{
    switch (answer.kind) {
        case Answer::Kind::Byte:
            // A client that has gone meanwhile makes this write fail, as it would.
            connection->instance->Write(PipeSide::Server, &answer.value, 1, nullptr);
            break;
        case Answer::Kind::Nothing:
            break;
        case Answer::Kind::BreakPipe:
            connection->instance->Close(PipeSide::Server);
            break;
    }
}

std::vector<std::vector<BYTE>> ScriptedPipeServer::Payloads() const
{
    std::vector<std::vector<BYTE>> payloads;
    for (auto const& frame : frames_) {
        payloads.emplace_back(frame.begin() + kLengthSize, frame.end());
    }
    return payloads;
}

std::size_t ScriptedPipeServer::UnframedBytes() const
{
    std::size_t bytes = 0;
    for (auto const& connection : open_) {
        bytes += connection->buffer.size() + connection->instance->Arrived(PipeSide::Server);
    }
    return bytes;
}

// --- the scripted client ---------------------------------------------------------------

std::shared_ptr<ScriptedPipeClient> ScriptedPipeClient::Create()
{
    auto client = std::make_shared<ScriptedPipeClient>();
    TheWorld().pipes.Keep(client);
    return client;
}

bool ScriptedPipeClient::Open(std::u16string const& name)
{
    instance_ = TheWorld().pipes.Connect(name, openError_);
    if (!instance_) {
        return false;
    }
    std::weak_ptr<ScriptedPipeClient> weakSelf = weak_from_this();
    instance_->onArrival[static_cast<std::size_t>(PipeSide::Client)] = [weakSelf] {
        if (auto self = weakSelf.lock()) {
            std::vector<BYTE> const bytes = self->instance_->TakeArrived(PipeSide::Client);
            self->received_.insert(self->received_.end(), bytes.begin(), bytes.end());
        }
    };
    return true;
}

bool ScriptedPipeClient::Write(std::vector<BYTE> const& bytes)
{
    if (!instance_ || !instance_->IsOpen(PipeSide::Client)) {
        return false;
    }
    return instance_->Write(PipeSide::Client, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr) != FALSE;
}

void ScriptedPipeClient::WriteAfter(DWORD delay, std::vector<BYTE> bytes)
{
    std::weak_ptr<ScriptedPipeClient> weakSelf = weak_from_this();
    TheWorld().After(delay, [weakSelf, bytes = std::move(bytes)] {
        if (auto self = weakSelf.lock()) {
            self->Write(bytes);
        }
    });
}

void ScriptedPipeClient::Close()
{
    if (instance_) {
        instance_->Close(PipeSide::Client);
    }
}

void ScriptedPipeClient::CloseAfter(DWORD delay)
{
    std::weak_ptr<ScriptedPipeClient> weakSelf = weak_from_this();
    TheWorld().After(delay, [weakSelf] {
        if (auto self = weakSelf.lock()) {
            self->Close();
        }
    });
}

}  // namespace hf::sim
