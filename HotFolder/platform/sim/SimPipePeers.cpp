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

std::shared_ptr<ScriptedPipeServer> ScriptedPipeServer::Create(std::u16string name)
{
    auto server = std::make_shared<ScriptedPipeServer>(std::move(name));
    TheWorld().pipes.Keep(server);
    return server;
}

void ScriptedPipeServer::Start()
{
    if (!std::exchange(serving_, true)) {
        Listen();
    }
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
    auto self = shared_from_this();
    process->OnExit([self] { self->Stop(); });
    TheWorld().After(delay, [self, weakProcess = std::weak_ptr<ChildProcess>(process)] {
        if (auto running = weakProcess.lock(); running && running->running) {
            self->Start();
        }
    });
}

void ScriptedPipeServer::Listen()
{
    DWORD error = 0;
    auto instance = TheWorld().pipes.CreateInstance(name_, PIPE_UNLIMITED_INSTANCES, error);
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
    // The server reads at its own pace: in the machine's next turn, not inside the
    // client's write. A client that goes away leaves a broken connection, which the server closes.
    instance->onServerArrival = [weakSelf, weakConnection] {
        Later(weakSelf, weakConnection, 0, [](ScriptedPipeServer& self, auto const& live) {
            self.Read(live);
            if (!live->instance->IsOpen(PipeSide::Client)) {
                live->instance->Close(PipeSide::Server);
                self.open_.erase(std::remove(self.open_.begin(), self.open_.end(), live), self.open_.end());
            }
        });
    };
}

void ScriptedPipeServer::Later(std::weak_ptr<ScriptedPipeServer> self, std::weak_ptr<Connection> connection,
                               DWORD delay,
                               std::function<void(ScriptedPipeServer&, std::shared_ptr<Connection> const&)> act)
{
    TheWorld().After(delay, [self, connection, act] {
        auto server = self.lock();
        auto live = connection.lock();
        if (server && live) {
            act(*server, live);
        }
    });
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
        Later(weak_from_this(), connection, answer.delay, [answer](ScriptedPipeServer&, auto const& live) {
            if (answer.breakPipe) {
                live->instance->Close(PipeSide::Server);
            } else {
                // A client that has gone meanwhile makes this write fail, as it would.
                live->instance->Write(PipeSide::Server, &answer.value, 1, nullptr);
            }
        });
    }
}

std::shared_ptr<ScriptedPipeClient> ScriptedPipeClient::Create()
{
    auto client = std::make_shared<ScriptedPipeClient>();
    TheWorld().pipes.Keep(client);
    return client;
}

bool ScriptedPipeClient::Open(std::u16string const& name)
{
    DWORD error = 0;
    instance_ = TheWorld().pipes.Connect(name, error);
    return instance_ != nullptr;
}

bool ScriptedPipeClient::Write(std::vector<BYTE> const& bytes)
{
    if (!instance_ || !instance_->IsOpen(PipeSide::Client)) {
        return false;
    }
    return instance_->Write(PipeSide::Client, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr) != FALSE;
}

void ScriptedPipeClient::Close()
{
    if (instance_) {
        instance_->Close(PipeSide::Client);
    }
}

}  // namespace hf::sim
