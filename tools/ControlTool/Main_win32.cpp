// The console entry of HotFolderControl.exe.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ControlTool.h"
#include "Registration.h"
#include "UserCommands.h"
#include "WideText.h"

namespace {

void StripLineEnd(std::u16string& text)
{
    while (!text.empty() && (text.back() == u'\n' || text.back() == u'\r')) {
        text.pop_back();
    }
}

// From a console the password is typed without echo; otherwise it is the
// first line of standard input (UTF-8), so a script can pipe it in.
bool ReadPassword(std::u16string const& user, std::u16string& password)
{
    HANDLE const input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(input, &mode)) {
        std::fprintf(stderr, "Password for %s: ", hf::ToUtf8(user).c_str());
        std::fflush(stderr);
        SetConsoleMode(input, (mode & ~ENABLE_ECHO_INPUT) | ENABLE_LINE_INPUT);
        std::vector<wchar_t> buffer(1024);
        DWORD read = 0;
        BOOL const typed = ReadConsoleW(input, buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr);
        SetConsoleMode(input, mode);
        std::fputs("\n", stderr);
        password.assign(reinterpret_cast<const char16_t*>(buffer.data()), typed ? read : 0);
        SecureZeroMemory(buffer.data(), buffer.size() * sizeof(wchar_t));
        StripLineEnd(password);
        return typed != FALSE;
    }
    std::string line;
    char c = 0;
    DWORD read = 0;
    bool anything = false;
    while (ReadFile(input, &c, 1, &read, nullptr) && read == 1) {
        anything = true;
        if (c == '\n') {
            break;
        }
        line += c;
    }
    password = hf::FromUtf8(line);
    SecureZeroMemory(line.data(), line.size());
    StripLineEnd(password);
    return anything;
}

std::string SystemText(HRESULT result)
{
    wchar_t* text = nullptr;
    DWORD const length =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, static_cast<DWORD>(result), 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    if (length == 0) {
        return "(no text for this code)";
    }
    std::u16string message(reinterpret_cast<const char16_t*>(text), length);
    LocalFree(text);
    StripLineEnd(message);
    return hf::ToUtf8(message);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    std::vector<std::u16string> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.emplace_back(reinterpret_cast<char16_t const*>(argv[i]));
    }
    std::string output;
    int result = 0;
    if (arguments.size() == 1 && hf::IsRegistrationCommand(arguments[0])) {
        result = hf::RunRegistrationCommand(arguments[0], output);
    } else if (!arguments.empty() && hf::IsUserCommand(arguments[0])) {
        result = hf::RunUserCommand(arguments, {&ReadPassword, &SystemText}, output);
    } else {
        result = hf::RunControlTool(arguments, output);
    }
    std::fputs(output.c_str(), result == 0 || result == 3 ? stdout : stderr);
    return result;
}
