#include "acrobat/AcrobatLauncher.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Errors.h"
#include "platform/Paths.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/UniqueHandle.h"

#include <cstring>
#include <vector>

namespace hf {

namespace {

// 255 characters and the terminator.
constexpr DWORD kValueCapacity = 256;
// STARTUPINFOW's size as the launcher has always declared it (the 32-bit
// structure's); CreateProcessW reads the fields it needs whatever cb says.
constexpr DWORD kStartupInfoSize = 68;

bool IsStringType(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

}  // namespace

std::u16string GetAcrobatPath(EventReporter& reporter)
{
    UniqueRegistryKey key;
    LONG const opened = os::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAcrobatPathKey, 0, KEY_READ, key.put());
    if (opened != 0) {
        reporter.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_REGISTRY_KEY_FAILED, {kAcrobatPathKey, DecimalText(opened)});
        return {};
    }
    std::u16string const defaultValue;
    std::u16string text;
    LONG const read = ReadRegistryString(key.get(), defaultValue, text);
    if (read != 0) {
        reporter.Report(EVENTLOG_ERROR_TYPE, MSG_READ_REGISTRY_VALUE_FAILED,
                        {kAcrobatPathKey, defaultValue, DecimalText(read)});
    }
    return text;
}

LONG ReadRegistryString(HKEY key, std::u16string const& valueName, std::u16string& text)
{
    std::vector<WCHAR> buffer(kValueCapacity, u'\0');
    DWORD type = REG_NONE;
    DWORD byteCount = kValueCapacity * sizeof(WCHAR);
    LONG result = os::RegQueryValueExW(key, valueName.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()),
                                       &byteCount);
    text.clear();
    if (result == static_cast<LONG>(ERROR_MORE_DATA)) {
        // No second try with a larger buffer: the path is limited to 255
        // characters, and a longer one ends the watcher.
        throw HResultError(E_INVALIDARG);
    }
    if (result != 0) {
        return result;
    }
    std::size_t const units = byteCount / sizeof(WCHAR);
    if (!IsStringType(type) || byteCount % sizeof(WCHAR) != 0 || (units > 0 && buffer[units - 1] != u'\0')) {
        return static_cast<LONG>(ERROR_INVALID_DATA);
    }
    if (units > 0) {
        text.assign(buffer.data());
    }
    return 0;
}

HANDLE LaunchAcrobat(EventReporter& reporter)
{
    std::u16string const path = GetAcrobatPath(reporter);
    // CreateProcessW may write into its command line, which is the file-name
    // part of this private copy of the path.
    std::vector<WCHAR> writable(path.begin(), path.end());
    writable.push_back(u'\0');
    WCHAR* const fileName = os::PathFindFileNameW(writable.data());

    os::STARTUPINFOW startup{};
    startup.cb = kStartupInfoSize;
    os::PROCESS_INFORMATION started{};
    if (!os::CreateProcessW(writable.data(), fileName, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                            &started)) {
        reporter.Report(EVENTLOG_ERROR_TYPE, MSG_CREATE_PROCESS_ACROBAT_FAILED, {LastErrorText()});
        return nullptr;
    }
    os::CloseHandle(started.hThread);
    return started.hProcess;
}

}  // namespace hf
