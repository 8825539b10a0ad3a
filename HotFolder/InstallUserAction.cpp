#include "InstallUserAction.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/Process.h"
#include "platform/Registry.h"
#include "platform/UniqueHandle.h"

#include <array>

namespace hf {

namespace {
constexpr DWORD kMaxPath = 260;
}

void WriteRunEntry(EventReporter& events)
{
    UniqueRegistryKey run;
    LONG const opened = os::RegOpenKeyExW(HKEY_CURRENT_USER, kRunKeyPath, 0, KEY_WRITE, run.put());
    if (opened != 0) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_REGISTRY_KEY_FAILED, {kRunKeyPath, DecimalText(opened)});
        return;
    }
    std::array<WCHAR, kMaxPath> path{};
    os::GetModuleFileNameW(nullptr, path.data(), kMaxPath);
    std::u16string const data = u"\"" + std::u16string(path.data()) + u"\" -currentuser";
    auto const bytes = static_cast<DWORD>((data.size() + 1) * sizeof(WCHAR));
    LONG const written =
        os::RegSetValueExW(run.get(), kRunValueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(data.c_str()), bytes);
    if (written != 0) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_WRITE_REGISTRY_VALUE_FAILED,
                      {kRunKeyPath, kRunValueName, DecimalText(written)});
    }
}

}  // namespace hf
