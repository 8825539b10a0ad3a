#include <windows.h>

#include "Registration.h"

#include <cstdio>
#include <set>
#include <vector>

#include "WideText.h"

namespace hf {
namespace {

// How often the executable's windows are looked for while it runs.
constexpr DWORD kPollMilliseconds = 100;
// The control id of a message box's text.
constexpr int kMessageBoxText = 0xFFFF;

struct BoxSearch {
    DWORD process;
    std::vector<HWND> boxes;
};

// Collects the dialog windows (a message box is one) of one process.
BOOL CALLBACK CollectBox(HWND window, LPARAM parameter)
{
    auto& search = *reinterpret_cast<BoxSearch*>(parameter);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    wchar_t className[16] = {};
    if (owner == search.process && GetClassNameW(window, className, 16) > 0 && std::wstring(className) == L"#32770") {
        search.boxes.push_back(window);
    }
    return TRUE;
}

std::string BoxText(HWND box)
{
    wchar_t caption[256] = {};
    wchar_t text[1024] = {};
    GetWindowTextW(box, caption, 256);
    GetDlgItemTextW(box, kMessageBoxText, text, 1024);
    return ToUtf8(reinterpret_cast<char16_t const*>(caption)) + ": " + ToUtf8(reinterpret_cast<char16_t const*>(text));
}

std::wstring ExecutableNextToThisProgram()
{
    std::vector<wchar_t> path(32768);
    DWORD const length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    std::wstring folder(path.data(), length);
    folder.erase(folder.find_last_of(L'\\') + 1);
    return folder + L"TarnwickHotFolder.exe";
}

std::string Hex(DWORD value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(value));
    return text;
}

}  // namespace

bool IsRegistrationCommand(std::u16string const& command)
{
    return command == u"register" || command == u"unregister";
}

int RunRegistrationCommand(std::u16string const& command, std::string& output)
{
    std::wstring const executable = ExecutableNextToThisProgram();
    std::wstring const oneShot = command == u"register" ? L"-Service" : L"-UnregServer";
    std::wstring line = L"\"" + executable + L"\" " + oneShot;
    std::string const what = ToUtf8(reinterpret_cast<char16_t const*>(line.c_str()));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(executable.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
        output += what + ": CreateProcessW failed with " + std::to_string(GetLastError()) + "\n";
        return 1;
    }
    CloseHandle(process.hThread);
    std::set<HWND> answered;
    DWORD waited;
    while ((waited = WaitForSingleObject(process.hProcess, kPollMilliseconds)) == WAIT_TIMEOUT) {
        BoxSearch search{process.dwProcessId, {}};
        EnumWindows(&CollectBox, reinterpret_cast<LPARAM>(&search));
        for (HWND box : search.boxes) {
            if (answered.insert(box).second) {
                output += what + " showed \"" + BoxText(box) + "\"; answered OK\n";
            }
            // Posted again each turn until the box is gone: it may not have
            // reached its message loop yet.
            PostMessageW(box, WM_COMMAND, IDOK, 0);
        }
    }
    DWORD code = 1;
    if (waited != WAIT_OBJECT_0 || !GetExitCodeProcess(process.hProcess, &code)) {
        output += what + ": waiting for it failed with " + std::to_string(GetLastError()) + "\n";
        code = 1;
    }
    CloseHandle(process.hProcess);
    output += what + " exited with " + Hex(code) + "\n";
    return code == 0 ? 0 : 1;
}

}  // namespace hf
