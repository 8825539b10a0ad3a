// The test plug-in: a stand-in for Acrobat and its plug-in, for the Wine tests
// and for trying the system out without Acrobat. Point the AcrobatPath
// registry value at it and the watcher starts it like Acrobat.
//
// It serves \\.\pipe\Tarnwick_PlugIn_<user>, the name formed by the watcher's
// own rule, one thread per connection. For every job message (4-byte
// little-endian length, then the marshalled dictionary) it
//   1. copies the input file into the output folder (creating that folder if
//      its parent exists), which is its whole "script";
//   2. writes one line to its journal;
//   3. answers with its reply byte.
// Journal lines (UTF-8, tab-separated):
//   started <pipe name> <command line>
//   job <number> <input> <script> <output folder> <reply N | broke> <copied | copy failed N>
//   bad <number> <length>          a message that is not a job; the connection is closed
//   exit                           the program ends as it was told
// The switches are in PlugInOptions.h.
#include <windows.h>
// After windows.h, which it builds on.
#include <shellapi.h>

#include "PlugInOptions.h"
#include "WideText.h"
#include "acrobat/JobMessage.h"
#include "acrobat/PipeNames.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace hf::testplugin {
namespace {

// ::DWORD is Windows' own (unsigned long); hf::DWORD, which the core's
// headers bring in, is the seam's 32-bit unsigned int.
constexpr ::DWORD kLargestMessage = 16 * 1024 * 1024;
constexpr wchar_t kOptionsVariable[] = L"TARNWICK_TEST_PLUGIN";

std::wstring Wide(std::u16string const& text)
{
    return std::wstring(text.begin(), text.end());
}

// The wall-clock time now as Unix milliseconds with a fraction, the clock the
// benchmarks read on the Linux side too.
std::string UnixMilliseconds()
{
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    ULARGE_INTEGER ticks{};
    ticks.LowPart = now.dwLowDateTime;
    ticks.HighPart = now.dwHighDateTime;
    constexpr unsigned long long kUnixEpochIn100ns = 116444736000000000ull;
    unsigned long long const sinceEpoch = ticks.QuadPart - kUnixEpochIn100ns;
    return std::to_string(sinceEpoch / 10000) + "." + std::to_string(sinceEpoch / 1000 % 10) +
           std::to_string(sinceEpoch / 100 % 10);
}

std::u16string Utf16(wchar_t const* text)
{
    return std::u16string(reinterpret_cast<char16_t const*>(text));
}

// Appends lines to the journal, opening it for each line so that a reader sees
// every line as soon as it is written.
class Journal {
public:
    explicit Journal(std::u16string path) : path_(Wide(path)) {}

    void Line(std::string const& text)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Append(text + "\r\n");
    }

    // Keeps a line back for the next Flush: a benchmark's plug-in must not
    // spend the time of a job on the journal.
    void Defer(std::string const& text)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        deferred_ += text + "\r\n";
    }

    void Flush()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!deferred_.empty()) {
            Append(deferred_);
            deferred_.clear();
        }
    }

private:
    void Append(std::string const& lines)
    {
        HANDLE const file = CreateFileW(path_.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            return;
        }
        ::DWORD written = 0;
        WriteFile(file, lines.data(), static_cast<::DWORD>(lines.size()), &written, nullptr);
        CloseHandle(file);
    }

    std::wstring path_;
    std::mutex mutex_;
    std::string deferred_;
};

// Splits a text by the command-line rules; the first token is a program name
// unless `leadingProgram` is false.
std::vector<std::u16string> SplitSwitches(std::wstring const& text, bool leadingProgram)
{
    std::wstring const line = leadingProgram ? text : L"program " + text;
    int count = 0;
    LPWSTR* arguments = CommandLineToArgvW(line.c_str(), &count);
    std::vector<std::u16string> switches;
    for (int i = 1; arguments != nullptr && i < count; ++i) {
        switches.push_back(Utf16(arguments[i]));
    }
    LocalFree(arguments);
    return switches;
}

std::wstring EnvironmentText(wchar_t const* name)
{
    ::DWORD const size = GetEnvironmentVariableW(name, nullptr, 0);
    if (size == 0) {
        return {};
    }
    std::wstring value(size, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), size));
    return value;
}

std::u16string DefaultJournal()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::u16string folder = Utf16(path);
    folder.resize(folder.find_last_of(u'\\') + 1);
    return folder + u"TestPlugIn.journal.txt";
}

// Reads exactly `size` bytes; false when the client has gone or the pipe failed.
bool ReadExactly(HANDLE pipe, BYTE* buffer, ::DWORD size)
{
    ::DWORD done = 0;
    while (done < size) {
        ::DWORD read = 0;
        if (!ReadFile(pipe, buffer + done, size - done, &read, nullptr) || read == 0) {
            return false;
        }
        done += read;
    }
    return true;
}

class Server {
public:
    Server(PlugInOptions options, Journal& journal)
        : options_(std::move(options)),
          journal_(journal),
          pipeName_(MakePipeName(kPlugInPipePrefix, GetCurrentUserName()))
    {
    }

    int Run()
    {
        journal_.Line("started\t" + ToUtf8(pipeName_) + "\t" + ToUtf8(Utf16(GetCommandLineW())));
        if (options_.exitAfterJob == 0u) {
            journal_.Line("exit");
            return 0;
        }
        Sleep(options_.startDelayMs);
        if (options_.benchmark) {
            std::thread([this] {
                for (;;) {
                    Sleep(20);
                    journal_.Flush();
                }
            }).detach();
        }
        for (;;) {
            HANDLE const pipe = CreateNamedPipeW(Wide(pipeName_).c_str(), PIPE_ACCESS_DUPLEX,
                                                 PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT,
                                                 PIPE_UNLIMITED_INSTANCES, 4096, 4096, 0, nullptr);
            if (pipe == INVALID_HANDLE_VALUE) {
                journal_.Line("CreateNamedPipe failed\t" + std::to_string(GetLastError()));
                return 2;
            }
            if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) {
                CloseHandle(pipe);
                Sleep(10);
                continue;
            }
            // Each connection is served on a thread of its own while this one
            // listens on a fresh instance for the next.
            std::thread([this, pipe] { Serve(pipe); }).detach();
        }
    }

private:
    void Serve(HANDLE pipe)
    {
        for (;;) {
            BYTE lengthBytes[4] = {};
            if (!ReadExactly(pipe, lengthBytes, 4)) {
                break;
            }
            ::DWORD const length = lengthBytes[0] | lengthBytes[1] << 8 | lengthBytes[2] << 16 |
                                   static_cast<::DWORD>(lengthBytes[3]) << 24;
            unsigned const number = ++jobs_;
            std::vector<BYTE> payload(length <= kLargestMessage ? length : 0);
            std::optional<Job> const job = length <= kLargestMessage && ReadExactly(pipe, payload.data(), length)
                                               ? DecodeJobPayload(payload.data(), payload.size())
                                               : std::nullopt;
            if (!job) {
                journal_.Line("bad\t" + std::to_string(number) + "\t" + std::to_string(length));
                break;
            }
            std::string const received = "\treceived " + UnixMilliseconds();
            std::string const line = "job\t" + std::to_string(number) + "\t" + ToUtf8(job->input) + "\t" +
                                     ToUtf8(job->script) + "\t" + ToUtf8(job->outputFolder) + "\t";
            if (options_.benchmark) {
                ::DWORD written = 0;
                WriteFile(pipe, &options_.reply, 1, &written, nullptr);
                journal_.Defer(line + "reply " + std::to_string(options_.reply) + "\tnot carried out" + received);
                continue;
            }
            std::string const outcome = CarryOut(*job);
            if (options_.breakAtJob == number) {
                journal_.Line(line + "broke\t" + outcome + received);
                break;
            }
            Sleep(options_.delayMs);
            journal_.Line(line + "reply " + std::to_string(options_.reply) + "\t" + outcome + received);
            ::DWORD written = 0;
            WriteFile(pipe, &options_.reply, 1, &written, nullptr);
            if (options_.exitAfterJob == number) {
                // Wait until the watcher has read the answer: the pipe's
                // buffered bytes may go with the program.
                FlushFileBuffers(pipe);
                journal_.Line("exit");
                ExitProcess(0);
            }
        }
        DisconnectNamedPipe(pipe);
        CloseHandle(pipe);
    }

    // Copies the input file into the output folder.
    std::string CarryOut(Job const& job)
    {
        std::u16string const& input = job.input;
        std::u16string const name =
            input.substr(input.find_last_of(u"\\/") == std::u16string::npos ? 0 : input.find_last_of(u"\\/") + 1);
        std::u16string target = job.outputFolder;
        if (!target.empty() && target.back() != u'\\') {
            target += u'\\';
        }
        target += name;
        CreateDirectoryW(Wide(job.outputFolder).c_str(), nullptr);
        if (CopyFileW(Wide(input).c_str(), Wide(target).c_str(), FALSE)) {
            return "copied";
        }
        return "copy failed " + std::to_string(GetLastError());
    }

    PlugInOptions const options_;
    Journal& journal_;
    std::u16string const pipeName_;
    std::atomic<unsigned> jobs_{0};
};

int Main()
{
    PlugInOptions options;
    options.journal = DefaultJournal();
    std::vector<std::u16string> switches = SplitSwitches(EnvironmentText(kOptionsVariable), false);
    for (auto& item : SplitSwitches(GetCommandLineW(), true)) {
        switches.push_back(std::move(item));
    }
    std::string error;
    bool const understood = ApplySwitches(switches, options, error);
    Journal journal(options.journal);
    if (!understood) {
        journal.Line(error);
        return 3;
    }
    if (options.lifetimeMs) {
        unsigned const lifetime = *options.lifetimeMs;
        std::thread([lifetime] {
            Sleep(lifetime);
            ExitProcess(0);
        }).detach();
    }
    return Server(options, journal).Run();
}

}  // namespace
}  // namespace hf::testplugin

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int)
{
    return hf::testplugin::Main();
}
