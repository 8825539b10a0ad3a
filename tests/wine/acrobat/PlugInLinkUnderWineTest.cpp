// The Acrobat launcher and the plug-in link on the real win32 backend: the
// launcher starts the test plug-in (tools/TestPlugIn) from the AcrobatPath
// registry value, and the link sends jobs over the real named pipe, reads the
// replies in completion routines run by alertable waits, and ends the plug-in
// as a service-run watcher does. The test plug-in's journal shows what it got.
#include <windows.h>
// After windows.h, which they build on.
#include <tlhelp32.h>
#define SECURITY_WIN32
#include <secext.h>

#include "WideText.h"
#include "acrobat/AcrobatLauncher.h"
#include "acrobat/PlugInLink.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

// The registry's own macros name the system's HKEY, which the core's
// namespace hides, so the registry is set up out here.
namespace {

LONG SetAcrobatPath(std::wstring const& path)
{
    HKEY key = nullptr;
    LONG result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Tarnwick\\AcrobatPath", 0, nullptr, 0, KEY_SET_VALUE,
                                  nullptr, &key, nullptr);
    if (result == ERROR_SUCCESS) {
        auto const bytes = static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t));
        result = RegSetValueExW(key, nullptr, 0, REG_SZ, reinterpret_cast<BYTE const*>(path.c_str()), bytes);
        RegCloseKey(key);
    }
    return result;
}

void RemoveAcrobatPath()
{
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"Software\\Tarnwick\\AcrobatPath");
}

}  // namespace

namespace hf::test {
namespace {

constexpr wchar_t kOptionsVariable[] = L"TARNWICK_TEST_PLUGIN";
constexpr wchar_t kPlugInImage[] = L"TestPlugIn.exe";
// Long enough for Wine to start a program and for a few polls 2000 ms apart.
constexpr ::DWORD kJobTimeLimit = 30000;

std::u16string Utf16(std::wstring const& text)
{
    return std::u16string(text.begin(), text.end());
}

// The test plug-in's path as Windows sees it: Wine maps the Unix root to Z:.
std::wstring PlugInPath()
{
    char const* unixPath = std::getenv("HF_TEST_PLUGIN");
    if (unixPath == nullptr) {
        return {};
    }
    std::wstring path = L"Z:";
    for (char const* c = unixPath; *c != 0; ++c) {
        path += *c == '/' ? L'\\' : static_cast<wchar_t>(*c);
    }
    return path;
}

// \\.\pipe\Tarnwick_PlugIn_ and the user's DOMAIN\user with its backslash
// made an underscore, worked out here from the system's own answer.
std::string ExpectedPlugInPipeName()
{
    wchar_t user[512] = {};
    ULONG size = 512;
    GetUserNameExW(NameSamCompatible, user, &size);
    std::wstring name(user, size);
    for (auto& c : name) {
        c = c == L'\\' ? L'_' : c;
    }
    return "\\\\.\\pipe\\Tarnwick_PlugIn_" + ToUtf8(Utf16(name));
}

// Ends every copy of the test plug-in, so that none left by an earlier test
// serves the pipe of this one.
void EndStrayPlugIns()
{
    HANDLE const snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return;
    }
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (_wcsicmp(entry.szExeFile, kPlugInImage) == 0) {
            if (HANDLE const process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, entry.th32ProcessID)) {
                TerminateProcess(process, 0);
                WaitForSingleObject(process, 5000);
                CloseHandle(process);
            }
        }
    }
    CloseHandle(snapshot);
}

int RunningPlugIns()
{
    int count = 0;
    HANDLE const snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        count += _wcsicmp(entry.szExeFile, kPlugInImage) == 0 ? 1 : 0;
    }
    CloseHandle(snapshot);
    return count;
}

// Removes a folder and everything in it.
void RemoveTree(std::wstring const& folder)
{
    WIN32_FIND_DATAW found{};
    HANDLE const find = FindFirstFileW((folder + L"\\*").c_str(), &found);
    for (BOOL more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileW(find, &found)) {
        std::wstring const name = found.cFileName;
        if (name == L"." || name == L"..") {
            continue;
        }
        std::wstring const path = folder + L"\\" + name;
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            RemoveTree(path);
        } else {
            DeleteFileW(path.c_str());
        }
    }
    if (find != INVALID_HANDLE_VALUE) {
        FindClose(find);
    }
    RemoveDirectoryW(folder.c_str());
}

void WriteTextFile(std::wstring const& path, std::string const& text)
{
    HANDLE const file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    ::DWORD written = 0;
    WriteFile(file, text.data(), static_cast<::DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
}

std::optional<std::string> ReadTextFile(std::wstring const& path)
{
    HANDLE const file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return std::nullopt;
    }
    std::string text;
    char chunk[4096];
    ::DWORD read = 0;
    while (ReadFile(file, chunk, sizeof(chunk), &read, nullptr) && read > 0) {
        text.append(chunk, read);
    }
    CloseHandle(file);
    return text;
}

std::vector<std::string> Lines(std::string const& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

class PlugInLinkUnderWine : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(plugInPath.empty()) << "HF_TEST_PLUGIN is not set; run the suite through ctest";
        EndStrayPlugIns();
        wchar_t temp[MAX_PATH] = {};
        GetTempPathW(MAX_PATH, temp);
        folder = std::wstring(temp) + L"hf_acrobat_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
                 std::to_wstring(GetTickCount());
        ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
        ASSERT_TRUE(CreateDirectoryW((folder + L"\\In").c_str(), nullptr));
        journal = folder + L"\\journal.txt";
        spec->Script = u"C:\\Scripts\\stamp.py";
        spec->OutputFolder = Utf16(folder + L"\\Out");

        ASSERT_EQ(SetAcrobatPath(plugInPath), ERROR_SUCCESS);
    }

    void TearDown() override
    {
        link.reset();
        EndStrayPlugIns();
        SetEnvironmentVariableW(kOptionsVariable, nullptr);
        RemoveAcrobatPath();
        if (!folder.empty()) {
            RemoveTree(folder);
        }
    }

    // The switches the test plug-in reads when the launcher starts it with no arguments.
    void PlugInSwitches(std::wstring const& switches)
    {
        std::wstring const all = L"\"-journal:" + journal + L"\" -lifetime:60000 " + switches;
        SetEnvironmentVariableW(kOptionsVariable, all.c_str());
    }

    std::u16string InputFile(std::wstring const& name, std::string const& content)
    {
        std::wstring const path = folder + L"\\In\\" + name;
        WriteTextFile(path, content);
        return Utf16(path);
    }

    // The watcher loop's turns after SendJob until the link is idle: Poll,
    // then an alertable wait with Poll's time-out, in which the link's
    // completion routines run. False when the time limit passed first.
    bool RunUntilIdle()
    {
        ::DWORD const start = GetTickCount();
        for (;;) {
            hf::DWORD timeout = 0;
            if (!link->Poll(timeout)) {
                return true;
            }
            ::DWORD const elapsed = GetTickCount() - start;
            if (elapsed > kJobTimeLimit) {
                return false;
            }
            SleepEx(std::min<::DWORD>(timeout, kJobTimeLimit - elapsed), TRUE);
        }
    }

    // The journal's lines without the time each job was received, which no test can know.
    std::vector<std::string> JournalLines() const
    {
        std::vector<std::string> lines = Lines(ReadTextFile(journal).value_or(""));
        for (auto& line : lines) {
            line = line.substr(0, line.find("\treceived "));
        }
        return lines;
    }

    std::vector<std::string> JournalLinesStartingWith(std::string const& first) const
    {
        std::vector<std::string> found;
        for (auto const& line : JournalLines()) {
            if (line.rfind(first + "\t", 0) == 0 || line == first) {
                found.push_back(line);
            }
        }
        return found;
    }

    std::wstring const plugInPath = PlugInPath();
    std::wstring folder;
    std::wstring journal;
    HotFolderSpecPtr spec = boost::make_shared<HotFolderSpec>();
    EventReporter reporter{kCategoryUser};
    std::optional<PlugInLink> link;
};

// The launcher starts the registry's program with its bare file name as the command line.
TEST_F(PlugInLinkUnderWine, LauncherStartsTheRegistrysProgramByItsFileName)
{
    PlugInSwitches(L"-exit:0");
    HANDLE const process = LaunchAcrobat(reporter);
    ASSERT_NE(process, nullptr) << "CreateProcessW failed with " << GetLastError();
    EXPECT_EQ(WaitForSingleObject(process, 20000), WAIT_OBJECT_0);
    CloseHandle(process);
    EXPECT_EQ(JournalLines(),
              (std::vector<std::string>{"started\t" + ExpectedPlugInPipeName() + "\tTestPlugIn.exe", "exit"}));
}

// The link launches the plug-in, waits for its pipe, sends two jobs over it
// and reads both replies; the plug-in carries both out.
TEST_F(PlugInLinkUnderWine, LinkLaunchesThePlugInAndSendsTwoJobsOverOnePipe)
{
    PlugInSwitches(L"-startdelay:300");
    std::u16string const first = InputFile(L"a.txt", "first");
    std::u16string const second = InputFile(L"Résumé b.txt", "second");
    link.emplace(reporter, true);

    link->SendJob(first, spec);
    ASSERT_TRUE(RunUntilIdle()) << "no reply to the first job";
    link->SendJob(second, spec);
    ASSERT_TRUE(RunUntilIdle()) << "no reply to the second job";

    std::string const out = ToUtf8(spec->OutputFolder);
    EXPECT_EQ(JournalLinesStartingWith("started").size(), 1u) << "one launch: the pipe is reused";
    EXPECT_EQ(JournalLinesStartingWith("job"),
              (std::vector<std::string>{
                  "job\t1\t" + ToUtf8(first) + "\tC:\\Scripts\\stamp.py\t" + out + "\treply 1\tcopied",
                  "job\t2\t" + ToUtf8(second) + "\tC:\\Scripts\\stamp.py\t" + out + "\treply 1\tcopied"}));
    EXPECT_EQ(ReadTextFile(folder + L"\\Out\\a.txt"), std::optional<std::string>("first"));
    EXPECT_EQ(ReadTextFile(folder + L"\\Out\\Résumé b.txt"), std::optional<std::string>("second"));

    EXPECT_EQ(RunningPlugIns(), 1);
    link->TerminateAcrobat();
    EXPECT_EQ(RunningPlugIns(), 0) << "as service, the link ends the plug-in it started";
}

// A zero reply ends the service-run link's plug-in; the next job starts it again.
TEST_F(PlugInLinkUnderWine, ZeroReplyEndsThePlugInAndTheNextJobStartsItAgain)
{
    PlugInSwitches(L"-reply:0");
    link.emplace(reporter, true);

    link->SendJob(InputFile(L"a.txt", "a"), spec);
    ASSERT_TRUE(RunUntilIdle());
    link->SendJob(InputFile(L"b.txt", "b"), spec);
    ASSERT_TRUE(RunUntilIdle());

    EXPECT_EQ(JournalLinesStartingWith("started").size(), 2u);
    EXPECT_EQ(JournalLinesStartingWith("job").size(), 2u);
}

}  // namespace
}  // namespace hf::test
