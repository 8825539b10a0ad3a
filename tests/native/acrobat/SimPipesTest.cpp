// The simulated machine's named pipes and child processes behave as Windows
// does where the hot folder system relies on it: connects, busy and missing
// pipes, byte-stream reads and writes whose routines run only in alertable
// waits, broken pipes, and processes that exit, are terminated and are waited for.
#include "SimTest.h"
#include "platform/Files.h"
#include "platform/Pipes.h"
#include "platform/Process.h"
#include "platform/Sync.h"
#include "platform/UniqueHandle.h"
#include "platform/sim/SimPipePeers.h"

#include <cstring>

namespace hf::test {
namespace {

constexpr char16_t kPipe[] = u"\\\\.\\pipe\\Tarnwick_Test_pipe";
constexpr DWORD kDuplexOverlapped = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED;

// One read or write whose completion routine finds it through hEvent.
struct Operation {
    Operation() { overlapped.hEvent = this; }
    static void Done(DWORD error, DWORD bytes, OVERLAPPED* overlapped)
    {
        auto* operation = static_cast<Operation*>(overlapped->hEvent);
        operation->error = error;
        operation->bytes = bytes;
        ++operation->completions;
    }
    OVERLAPPED overlapped{};
    BYTE buffer[16] = {};
    DWORD error = 0xFFFFFFFFu;
    DWORD bytes = 0;
    int completions = 0;
};

class SimPipesTest : public SimTest {
protected:
    HANDLE Server(DWORD maxInstances = PIPE_UNLIMITED_INSTANCES)
    {
        return os::CreateNamedPipeW(kPipe, kDuplexOverlapped, PIPE_TYPE_BYTE, maxInstances, 10240, 10240, 30000,
                                    nullptr);
    }
    HANDLE Client()
    {
        return os::CreateFileW(kPipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                               nullptr);
    }
    // An alertable wait that nothing but a completion routine ends.
    DWORD AlertableWait(DWORD timeout = 0)
    {
        HANDLE const events[] = {idle.get()};
        return os::WaitForMultipleObjectsEx(1, events, FALSE, timeout, TRUE);
    }
    bool Write(HANDLE end, std::string const& text)
    {
        DWORD written = 0;
        return os::WriteFile(end, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != FALSE &&
               written == text.size();
    }
    UniqueKernelHandle idle{os::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

TEST_F(SimPipesTest, PendingConnectSignalsItsEventWhenAClientOpens)
{
    UniqueFileHandle server(Server());
    UniqueKernelHandle connected(os::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    OVERLAPPED overlapped{};
    overlapped.hEvent = connected.get();
    EXPECT_FALSE(os::ConnectNamedPipe(server.get(), &overlapped));
    EXPECT_EQ(os::GetLastError(), ERROR_IO_PENDING);
    EXPECT_EQ(os::WaitForSingleObject(connected.get(), 0), WAIT_TIMEOUT);

    UniqueFileHandle client(Client());
    ASSERT_TRUE(client);
    EXPECT_EQ(os::WaitForSingleObject(connected.get(), 0), WAIT_OBJECT_0);
}

TEST_F(SimPipesTest, ClientBeforeTheConnectGivesPipeConnectedAndNoSignal)
{
    UniqueFileHandle server(Server());
    UniqueFileHandle client(Client());
    ASSERT_TRUE(client);
    UniqueKernelHandle connected(os::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    OVERLAPPED overlapped{};
    overlapped.hEvent = connected.get();
    EXPECT_FALSE(os::ConnectNamedPipe(server.get(), &overlapped));
    EXPECT_EQ(os::GetLastError(), ERROR_PIPE_CONNECTED);
    EXPECT_EQ(os::WaitForSingleObject(connected.get(), 0), WAIT_TIMEOUT);
}

TEST_F(SimPipesTest, MissingAndBusyPipesFailToOpen)
{
    EXPECT_EQ(Client(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(os::GetLastError(), ERROR_FILE_NOT_FOUND);

    UniqueFileHandle server(Server());
    UniqueFileHandle first(Client());
    ASSERT_TRUE(first);
    EXPECT_EQ(Client(), INVALID_HANDLE_VALUE) << "the one instance is taken";
    EXPECT_EQ(os::GetLastError(), ERROR_PIPE_BUSY);

    UniqueFileHandle second(Server());
    EXPECT_TRUE(UniqueFileHandle(Client())) << "a new instance takes the next client";
}

TEST_F(SimPipesTest, InstanceLimitOfTheFirstInstanceHolds)
{
    UniqueFileHandle one(Server(2));
    UniqueFileHandle two(Server(2));
    EXPECT_EQ(Server(2), INVALID_HANDLE_VALUE);
    EXPECT_EQ(os::GetLastError(), ERROR_PIPE_BUSY);
    two.reset();
    EXPECT_TRUE(UniqueFileHandle(Server(2))) << "a closed instance frees its place";
}

TEST_F(SimPipesTest, NamesListsPipesWhileAnInstanceIsOpen)
{
    EXPECT_TRUE(world().pipes.Names().empty());
    UniqueFileHandle server(Server());
    EXPECT_EQ(world().pipes.Names(), std::vector<std::u16string>{u"Tarnwick_Test_pipe"});
    EXPECT_EQ(os::CreateNamedPipeW(u"C:\\not\\a\\pipe", kDuplexOverlapped, 0, 1, 0, 0, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(os::GetLastError(), ERROR_INVALID_NAME);
    server.reset();
    EXPECT_TRUE(world().pipes.Names().empty());
}

TEST_F(SimPipesTest, NamesAreComparedWithoutRegardToCase)
{
    UniqueFileHandle server(Server());
    EXPECT_TRUE(UniqueFileHandle(os::CreateFileW(u"\\\\.\\PIPE\\tarnwick_test_PIPE", GENERIC_READ | GENERIC_WRITE, 0,
                                                 nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr)));
}

// Reads take what has arrived, up to the size asked; the routine runs only in an alertable wait.
TEST_F(SimPipesTest, BytesFlowAsAStreamAndCompleteInAlertableWaits)
{
    UniqueFileHandle server(Server());
    UniqueFileHandle client(Client());
    ASSERT_TRUE(Write(client.get(), "abc"));
    ASSERT_TRUE(Write(client.get(), "def"));

    Operation read;
    ASSERT_TRUE(os::ReadFileEx(server.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(read.completions, 0) << "not before an alertable wait";
    HANDLE const events[] = {idle.get()};
    EXPECT_EQ(os::WaitForMultipleObjectsEx(1, events, FALSE, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_EQ(read.completions, 0) << "not in a wait that is not alertable";
    EXPECT_EQ(AlertableWait(), WAIT_IO_COMPLETION);
    EXPECT_EQ(read.completions, 1);
    EXPECT_EQ(read.error, 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(read.buffer), read.bytes), "abcd");

    ASSERT_TRUE(os::ReadFileEx(server.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(AlertableWait(), WAIT_IO_COMPLETION);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(read.buffer), read.bytes), "ef");
}

TEST_F(SimPipesTest, PendingReadCompletesWhenBytesArrive)
{
    UniqueFileHandle server(Server());
    UniqueFileHandle client(Client());
    Operation read;
    ASSERT_TRUE(os::ReadFileEx(client.get(), read.buffer, 1, &read.overlapped, &Operation::Done));
    EXPECT_EQ(AlertableWait(), WAIT_TIMEOUT);

    Operation write;
    BYTE const reply = 7;
    ASSERT_TRUE(os::WriteFileEx(server.get(), &reply, 1, &write.overlapped, &Operation::Done));
    EXPECT_EQ(AlertableWait(), WAIT_IO_COMPLETION);
    EXPECT_EQ(write.completions, 1);
    EXPECT_EQ(write.bytes, 1u);
    EXPECT_EQ(read.completions, 1);
    EXPECT_EQ(read.buffer[0], 7);
}

TEST_F(SimPipesTest, ClientClosingBreaksTheServersReadsAndWrites)
{
    UniqueFileHandle server(Server());
    UniqueFileHandle client(Client());
    Operation read;
    ASSERT_TRUE(os::ReadFileEx(server.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    client.reset();
    EXPECT_EQ(AlertableWait(), WAIT_IO_COMPLETION);
    EXPECT_EQ(read.error, ERROR_BROKEN_PIPE);
    EXPECT_EQ(read.bytes, 0u);

    EXPECT_FALSE(os::ReadFileEx(server.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(os::GetLastError(), ERROR_BROKEN_PIPE);
    EXPECT_FALSE(Write(server.get(), "x"));
    EXPECT_EQ(os::GetLastError(), ERROR_NO_DATA);
    OVERLAPPED connect{};
    EXPECT_FALSE(os::ConnectNamedPipe(server.get(), &connect));
    EXPECT_EQ(os::GetLastError(), ERROR_NO_DATA);
}

TEST_F(SimPipesTest, BytesWrittenBeforeTheServerClosedStayReadable)
{
    UniqueFileHandle server(Server());
    UniqueFileHandle client(Client());
    ASSERT_TRUE(Write(server.get(), "z"));
    server.reset();

    EXPECT_FALSE(Write(client.get(), "x"));
    EXPECT_EQ(os::GetLastError(), ERROR_NO_DATA);
    Operation read;
    ASSERT_TRUE(os::ReadFileEx(client.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(AlertableWait(), WAIT_IO_COMPLETION);
    EXPECT_EQ(read.bytes, 1u);
    EXPECT_FALSE(os::ReadFileEx(client.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(os::GetLastError(), ERROR_BROKEN_PIPE);
}

TEST_F(SimPipesTest, ClosingAnEndAbortsItsOwnPendingRead)
{
    UniqueFileHandle server(Server());
    UniqueFileHandle client(Client());
    Operation read;
    ASSERT_TRUE(os::ReadFileEx(client.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    client.reset();
    EXPECT_EQ(AlertableWait(), WAIT_IO_COMPLETION);
    EXPECT_EQ(read.error, ERROR_OPERATION_ABORTED);
}

TEST_F(SimPipesTest, ListeningInstanceRefusesReadsAndWrites)
{
    UniqueFileHandle server(Server());
    EXPECT_FALSE(Write(server.get(), "x"));
    EXPECT_EQ(os::GetLastError(), ERROR_PIPE_LISTENING);
    Operation read;
    EXPECT_FALSE(os::ReadFileEx(server.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(os::GetLastError(), ERROR_PIPE_LISTENING);
}

TEST_F(SimPipesTest, MessageModeIsNotModelled)
{
    EXPECT_EQ(os::CreateNamedPipeW(kPipe, kDuplexOverlapped, PIPE_TYPE_MESSAGE, 1, 0, 0, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(os::GetLastError(), ERROR_NOT_SUPPORTED);
}

// A scripted client stands for another process writing 4-byte commands.
TEST_F(SimPipesTest, ScriptedClientWritesToTheServerAtItsTime)
{
    UniqueFileHandle server(Server());
    auto client = sim::ScriptedPipeClient::Create();
    ASSERT_TRUE(client->Open(kPipe));
    client->WriteAfter(500, {0x01, 0x80, 0x00, 0x00});
    client->CloseAfter(600);

    Operation read;
    ASSERT_TRUE(os::ReadFileEx(server.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(AlertableWait(10000), WAIT_IO_COMPLETION);
    EXPECT_EQ(world().Ticks(), 500u);
    EXPECT_EQ(read.bytes, 4u);
    ASSERT_TRUE(os::ReadFileEx(server.get(), read.buffer, 4, &read.overlapped, &Operation::Done));
    EXPECT_EQ(AlertableWait(10000), WAIT_IO_COMPLETION);
    EXPECT_EQ(read.error, ERROR_BROKEN_PIPE);

    auto late = sim::ScriptedPipeClient::Create();
    EXPECT_FALSE(late->Open(u"\\\\.\\pipe\\nobody"));
    EXPECT_EQ(late->OpenError(), ERROR_FILE_NOT_FOUND);
}

// --- child processes ----------------------------------------------------------------------------

class SimProcessesTest : public SimTest {
protected:
    BOOL Start(std::u16string const& application, std::u16string commandLine, os::PROCESS_INFORMATION& started)
    {
        os::STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        return os::CreateProcessW(application.empty() ? nullptr : application.c_str(), commandLine.data(), nullptr,
                                  nullptr, FALSE, 0, nullptr, nullptr, &startup, &started);
    }
};

TEST_F(SimProcessesTest, OnlyDeclaredProgramsStart)
{
    os::PROCESS_INFORMATION started{};
    EXPECT_FALSE(Start(u"C:\\Tools\\missing.exe", u"missing.exe", started));
    EXPECT_EQ(os::GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(Start(u"", u"", started));
    EXPECT_EQ(os::GetLastError(), ERROR_PATH_NOT_FOUND);

    world().processes.children.AddImage(u"C:\\Tools\\tool.exe");
    ASSERT_TRUE(Start(u"", u"\"c:\\tools\\TOOL.exe\" -x", started)) << "the command line names the program";
    UniqueKernelHandle process(started.hProcess);
    UniqueKernelHandle thread(started.hThread);
    auto const& child = *world().processes.children.Started().front();
    EXPECT_EQ(U8(child.commandLine), "\"c:\\tools\\TOOL.exe\" -x");
    EXPECT_EQ(U8(child.imagePath), "C:\\Tools\\tool.exe");
    EXPECT_EQ(started.dwProcessId, child.processId);
}

TEST_F(SimProcessesTest, ExitSignalsTheProcessAndGivesItsCode)
{
    world().processes.children.AddImage(u"C:\\Tools\\tool.exe",
                                        [](auto const& process) { process->ExitAfter(1000, 3); });
    os::PROCESS_INFORMATION started{};
    ASSERT_TRUE(Start(u"C:\\Tools\\tool.exe", u"tool.exe", started));
    UniqueKernelHandle process(started.hProcess);
    UniqueKernelHandle thread(started.hThread);

    DWORD code = 0;
    ASSERT_TRUE(os::GetExitCodeProcess(process.get(), &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(os::WaitForSingleObject(process.get(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(os::WaitForSingleObject(process.get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(world().Ticks(), 1000u);
    ASSERT_TRUE(os::GetExitCodeProcess(process.get(), &code));
    EXPECT_EQ(code, 3u);
    EXPECT_EQ(os::WaitForSingleObject(thread.get(), 0), WAIT_OBJECT_0);
}

TEST_F(SimProcessesTest, TerminateRecordsTheCodeAndEndsThePrograms)
{
    auto server = sim::ScriptedPipeServer::Create(u"\\\\.\\pipe\\served");
    world().processes.children.AddImage(u"C:\\Tools\\tool.exe",
                                        [server](auto const& process) { server->RunInside(process, 0); });
    os::PROCESS_INFORMATION started{};
    ASSERT_TRUE(Start(u"C:\\Tools\\tool.exe", u"tool.exe", started));
    UniqueKernelHandle process(started.hProcess);
    UniqueKernelHandle thread(started.hThread);
    world().Advance(0);
    EXPECT_TRUE(server->Serving());

    EXPECT_TRUE(os::TerminateProcess(process.get(), 9));
    auto const& child = *world().processes.children.Started().front();
    EXPECT_TRUE(child.terminated);
    EXPECT_EQ(child.exitCode, 9u);
    EXPECT_FALSE(server->Serving()) << "the program's pipe went with it";
    EXPECT_FALSE(os::TerminateProcess(process.get(), 1));
    EXPECT_EQ(os::GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(SimProcessesTest, WaitOnNoProcessFailsWithInvalidHandle)
{
    EXPECT_EQ(os::WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_EQ(os::GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(SimProcessesTest, UserNameNeedsRoomForItsTerminator)
{
    world().processes.current.userName = u"OFFICE\\clerk";
    WCHAR buffer[13] = {};
    DWORD size = 12;
    EXPECT_FALSE(os::GetUserNameExW(NameSamCompatible, buffer, &size));
    EXPECT_EQ(os::GetLastError(), ERROR_MORE_DATA);
    EXPECT_EQ(size, 13u);
    ASSERT_TRUE(os::GetUserNameExW(NameSamCompatible, buffer, &size));
    EXPECT_EQ(size, 12u);
    EXPECT_EQ(U8(buffer), "OFFICE\\clerk");
}

}  // namespace
}  // namespace hf::test
