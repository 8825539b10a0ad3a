#include "service/Registration.h"

#include "EventReporter.h"
#include "ServiceIdentity.h"
#include "platform/Com.h"
#include "platform/Constants.h"
#include "platform/Registry.h"
#include "platform/ServiceManager.h"
#include "platform/UniqueHandle.h"
#include "service/HotFolderModule.h"
#include "service/RegistryScript.h"
#include "service/ServiceInstaller.h"

#include <array>

namespace hf {

namespace {

constexpr WCHAR kPerUserClasses[] = u"Software\\Classes";
constexpr WCHAR kLocalService[] = u"LocalService";
constexpr WCHAR kEventSourceKeyPrefix[] = u"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application\\";
constexpr DWORD kEventTypesSupported = 7;  // error, warning, information
constexpr DWORD kEventCategoryCount = 3;

// Who may call FolderService: a self-relative security descriptor whose DACL
// lets Everyone (S-1-1-0) and LocalSystem (S-1-5-18) execute locally (COM
// access mask 0x3) and the calling principal itself (S-1-5-10) also remotely
// (0x7); owner and group are the Administrators (S-1-5-32-544).
constexpr std::array<BYTE, 120> kAccessPermission = {
    0x01, 0x00, 0x04, 0x80, 0x58, 0x00, 0x00, 0x00, 0x68, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x14, 0x00,
    0x00, 0x00, 0x02, 0x00, 0x44, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x14, 0x00, 0x03, 0x00, 0x00, 0x00,
    0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x14, 0x00, 0x07, 0x00,
    0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x0a, 0x00, 0x00, 0x00, 0x00, 0x00, 0x14, 0x00,
    0x03, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x12, 0x00, 0x00, 0x00, 0x01, 0x02,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x20, 0x00, 0x00, 0x00, 0x20, 0x02, 0x00, 0x00, 0x01, 0x02, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x05, 0x20, 0x00, 0x00, 0x00, 0x20, 0x02, 0x00, 0x00};

LONG SetString(HKEY key, const WCHAR* name, std::u16string const& text)
{
    auto const bytes = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
    return os::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes);
}

LONG SetDword(HKEY key, const WCHAR* name, DWORD value)
{
    return os::RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
}

}  // namespace

LONG OpenAppIdKey(DWORD access, UniqueRegistryKey& appId)
{
    UniqueRegistryKey appIds;
    LONG const opened = os::RegOpenKeyExW(HKEY_CLASSES_ROOT, u"AppID", 0, access, appIds.put());
    return opened != 0 ? opened : os::RegOpenKeyExW(appIds.get(), kAppId, 0, access, appId.put());
}

HRESULT ServerRegistration::ApplyTable(unsigned id, bool registering)
{
    std::u16string script;
    if (HRESULT const loaded = LoadRegistryScript(id, script); loaded != S_OK) {
        return loaded;
    }
    RegistryReplacements replacements;
    module_.AddCommonReplacements(replacements);
    replacements[u"MODULE"] = u"\"" + ExecutablePath() + u"\"";
    if (!perUser_) {
        return ApplyRegistryScript(script, replacements, HKEY_CLASSES_ROOT, registering);
    }
    UniqueRegistryKey classes;
    LONG const opened = registering ? os::RegCreateKeyExW(HKEY_CURRENT_USER, kPerUserClasses, 0, nullptr, 0,
                                                          KEY_ALL_ACCESS_READ_WRITE, nullptr, classes.put(), nullptr)
                                    : os::RegOpenKeyExW(HKEY_CURRENT_USER, kPerUserClasses, 0,
                                                        KEY_ALL_ACCESS_READ_WRITE, classes.put());
    if (opened != 0) {
        return HResultFromWin32(static_cast<DWORD>(opened));
    }
    return ApplyRegistryScript(script, replacements, classes.get(), registering);
}

HRESULT ServerRegistration::RegisterAppId(bool asService)
{
    std::u16string const& serviceName = module_.ServiceName();
    if (!UninstallService(serviceName)) {
        return E_FAIL;
    }
    if (HRESULT const applied = ApplyTable(kAppIdTableId, true); applied != S_OK) {
        return applied;
    }
    UniqueRegistryKey appIds;
    UniqueRegistryKey appId;
    LONG opened = os::RegOpenKeyExW(HKEY_CLASSES_ROOT, u"AppID", 0, KEY_WRITE, appIds.put());
    if (opened == 0) {
        opened = os::RegCreateKeyExW(appIds.get(), kAppId, 0, nullptr, 0, KEY_ALL_ACCESS_READ_WRITE, nullptr,
                                     appId.put(), nullptr);
    }
    if (opened != 0) {
        return HResultFromWin32(static_cast<DWORD>(opened));
    }
    os::RegDeleteValueW(appId.get(), kLocalService);  // a missing value is no error
    if (!asService) {
        return S_OK;
    }
    SetString(appId.get(), kLocalService, serviceName);
    if (!InstallService(serviceName)) {
        return E_FAIL;
    }
    ConfigureServiceStart();
    return WriteServiceValues();
}

// Created to start on demand, the service is turned to automatic start here;
// failures go to the event log, and a refused change passes silently.
void ServerRegistration::ConfigureServiceStart()
{
    EventReporter events(kCategoryUser);
    std::u16string const path = ExecutablePath();
    if (path.empty()) {
        return;
    }
    std::u16string const quoted = u"\"" + path + u"\"";
    std::u16string const& serviceName = module_.ServiceName();
    UniqueServiceHandle manager(os::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_SC_MANAGER_FAILED, {LastErrorText()});
        return;
    }
    UniqueServiceHandle service(os::OpenServiceW(manager.get(), serviceName.c_str(), SC_MANAGER_ALL_ACCESS));
    if (!service) {
        events.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_SERVICE_FAILED, {serviceName, LastErrorText()});
        return;
    }
    os::ChangeServiceConfigW(service.get(), SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                             quoted.c_str(), nullptr, nullptr, kServiceDependencies, nullptr, nullptr, nullptr);
}

// The AppID's access permission, then the event source with its four values,
// stopping at the first failure.
HRESULT ServerRegistration::WriteServiceValues()
{
    UniqueRegistryKey appId;
    std::u16string const appIdPath = u"AppId\\" + std::u16string(kAppId);
    LONG result = os::RegOpenKeyExW(HKEY_CLASSES_ROOT, appIdPath.c_str(), 0, KEY_WRITE, appId.put());
    if (result == 0) {
        result = os::RegSetValueExW(appId.get(), u"AccessPermission", 0, REG_BINARY, kAccessPermission.data(),
                                    static_cast<DWORD>(kAccessPermission.size()));
    }
    if (result != 0) {
        return HResultFromWin32(static_cast<DWORD>(result));
    }
    std::u16string const sourcePath = kEventSourceKeyPrefix + module_.ServiceName();
    std::u16string const executable = ExecutablePath();
    UniqueRegistryKey source;
    result = os::RegCreateKeyExW(HKEY_LOCAL_MACHINE, sourcePath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS_READ_WRITE,
                                 nullptr, source.put(), nullptr);
    if (result == 0) {
        result = SetString(source.get(), u"EventMessageFile", executable);
    }
    if (result == 0) {
        result = SetDword(source.get(), u"TypesSupported", kEventTypesSupported);
    }
    if (result == 0) {
        result = SetString(source.get(), u"CategoryMessageFile", executable);
    }
    if (result == 0) {
        result = SetDword(source.get(), u"CategoryCount", kEventCategoryCount);
    }
    return HResultFromWin32(static_cast<DWORD>(result));
}

HRESULT ServerRegistration::UnregisterAppId()
{
    if (!UninstallService(module_.ServiceName())) {
        return E_FAIL;
    }
    UniqueRegistryKey appId;
    if (LONG const opened = OpenAppIdKey(KEY_WRITE, appId); opened != 0) {
        return HResultFromWin32(static_cast<DWORD>(opened));
    }
    os::RegDeleteValueW(appId.get(), kLocalService);
    appId.reset();
    return ApplyTable(kAppIdTableId, false);
}

HRESULT ServerRegistration::RegisterServer()
{
    if (HRESULT const applied = ApplyTable(kClassTableId, true); applied != S_OK) {
        return applied;
    }
    std::u16string const path = ExecutablePath();
    os::ITypeLib* library = nullptr;
    HRESULT result = os::LoadTypeLib(path.c_str(), &library);
    if (result != S_OK) {
        return result;
    }
    // The library names no help file, so there is no help folder to give.
    result = perUser_ ? os::RegisterTypeLibForUser(library, path.c_str(), nullptr)
                      : os::RegisterTypeLib(library, path.c_str(), nullptr);
    library->Release();
    return result;
}

HRESULT ServerRegistration::UnregisterServer()
{
    if (HRESULT const removed = ApplyTable(kClassTableId, false); removed != S_OK) {
        return removed;
    }
    return perUser_ ? os::UnRegisterTypeLibForUser(os::LIBID_HotFolderLib, kHotFolderLibMajor, kHotFolderLibMinor,
                                                   kHotFolderLibLocale, SYS_WIN32)
                    : os::UnRegisterTypeLib(os::LIBID_HotFolderLib, kHotFolderLibMajor, kHotFolderLibMinor,
                                            kHotFolderLibLocale, SYS_WIN32);
}

}  // namespace hf
