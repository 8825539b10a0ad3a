// The one-shot switches run whole, as an administrator runs them; the expected
// data is written out from the registration contract, not the REGISTRY resources.
#include "Entry.h"
#include "SimTest.h"
#include "service/OneShotSwitches.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace hf::test {
namespace {

// The switch is found in the raw command line, the program's path included:
// a whole word after "-" or "/", any case, the server switches first.
TEST(OneShotSwitches, AreFoundByTheRawLineRules)
{
    using S = OneShotSwitch;
    std::pair<const char16_t*, S> const lines[] = {
        {u"\"C:\\hf.exe\" -RegServer", S::RegServer},
        {u"\"C:\\hf.exe\" /UnregServer", S::UnregServer},
        {u"\"C:\\hf.exe\" -regserverperuser", S::RegServerPerUser},
        {u"\"C:\\hf.exe\" /UNREGSERVERPERUSER", S::UnregServerPerUser},
        {u"\"C:\\hf.exe\" -RegServer2 -Services \"-RegServer\" - RegServer -pause", S::None},
        {u"\"C:\\hf.exe\" -RegServer\t-x", S::RegServer},
        {u"\"C:\\Tools -RegServer \\hf.exe\"", S::RegServer},
        {u"C:\\a/Service b\\hf.exe", S::Service},
        {u"\"C:\\hf.exe\" -Service -RegServer", S::RegServer},
        {u"\"C:\\hf.exe\" -UnregServerPerUser -RegServer", S::UnregServerPerUser},
        {u"\"C:\\hf.exe\" /Service -Service", S::Service},
        {u"", S::None},
    };
    for (auto const& [line, expected] : lines) {
        EXPECT_EQ(FindOneShotSwitch(line), expected) << U8(line);
    }
}

constexpr char16_t kExe[] = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";
constexpr char16_t kQuotedExe[] = u"\"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe\"";
constexpr char16_t kClsid[] = u"{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}";
constexpr char16_t kClassKey[] = u"CLSID\\{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}";
constexpr char16_t kAppId[] = u"{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}";
constexpr char16_t kAppIdKey[] = u"AppID\\{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}";
constexpr char16_t kEventSource[] = u"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application\\Tarnwick Hot Folders";
std::u16string const kClass = kClassKey;

// The string values of both tables (key, value name, data; "" is the default value).
std::vector<std::array<std::u16string, 3>> const kRows = {
    {kAppIdKey, u"", u"TarnwickHotFolder"},
    {u"AppID\\TarnwickHotFolder.EXE", u"AppID", kAppId},
    {u"Tarnwick.FolderService.1", u"", u"FolderService Class"},
    {u"Tarnwick.FolderService.1\\CLSID", u"", kClsid},
    {u"Tarnwick.FolderService", u"", u"FolderService Class"},
    {u"Tarnwick.FolderService\\CLSID", u"", kClsid},
    {u"Tarnwick.FolderService\\CurVer", u"", u"Tarnwick.FolderService.1"},
    {kClass, u"", u"FolderService Class"},
    {kClass, u"AppID", kAppId},
    {kClass + u"\\ProgID", u"", u"Tarnwick.FolderService.1"},
    {kClass + u"\\VersionIndependentProgID", u"", u"Tarnwick.FolderService"},
    {kClass + u"\\LocalServer32", u"", kQuotedExe},
    {kClass + u"\\TypeLib", u"", u"{524F5CA9-889F-479E-9DCC-E15F61C695AC}"},
};
// Other programs' keys (upper-cased, with their value counts), which stay; the keys without values.
std::map<std::u16string, std::size_t> const kOthers = {
    {u"APPID", 0}, {u"APPID\\OTHER.EXE", 1}, {u"CLSID", 0}, {u"CLSID\\{00000000-1111-2222-3333-444444444444}", 1}};
std::vector<std::u16string> const kBareKeys = {u"AppID", u"CLSID", kClass + u"\\Programmable"};

std::vector<BYTE> SourceFile(std::string const& relative)
{
    char const* source = std::getenv("HF_SOURCE_DIR");
    EXPECT_NE(source, nullptr) << "run the suite through ctest";
    std::ifstream file(std::string(source ? source : ".") + "/" + relative, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class RegistrationTest : public SimTest {
protected:
    RegistrationTest()
    {
        auto& resources = world().processes.current.resources;
        resources[{u"REGISTRY", 101}] = SourceFile("HotFolder/service/AppId.rgs");
        resources[{u"REGISTRY", 102}] = SourceFile("HotFolder/service/FolderService.rgs");
        resources[{u"TYPELIB", 1}] = {'M', 'S', 'F', 'T'};
        world().registry.SetString(HKEY_CLASSES_ROOT, u"CLSID\\{00000000-1111-2222-3333-444444444444}", u"", u"x");
        world().registry.SetString(HKEY_CLASSES_ROOT, u"AppID\\Other.EXE", u"AppID", u"{other}");
    }

    int Run(std::u16string const& arguments)
    {
        NewProcess();
        world().processes.current.commandLine = std::u16string(kQuotedExe) + u" " + arguments;
        return HotFolderMain(nullptr, 1);
    }

    // The keys below the classes root, upper-cased, with their value counts.
    std::map<std::u16string, std::size_t> Keys(HKEY root, std::u16string const& classes)
    {
        std::map<std::u16string, std::size_t> keys;
        std::u16string const prefix = classes.empty() ? u"" : AsciiUpper(classes) + u"\\";
        for (auto const& key : world().registry.KeysBelow(root, classes)) {
            if (key.size() > prefix.size()) {
                keys[key.substr(prefix.size())] =
                    world().registry.Find(sim::Registry::RootName(root) + u"\\" + key)->values.size();
            }
        }
        return keys;
    }

    // Exactly the tables' keys and REG_SZ values besides the other programs' (and `appIdValues` more in the AppID).
    void ExpectOnlyTables(HKEY root, std::u16string const& classes, std::size_t appIdValues = 0)
    {
        std::u16string const base = classes.empty() ? u"" : classes + u"\\";
        auto expected = classes.empty() ? kOthers : std::map<std::u16string, std::size_t>{};
        for (auto const& key : kBareKeys) {
            expected[AsciiUpper(key)];
        }
        for (auto const& [key, name, data] : kRows) {
            auto const value = world().registry.Value(root, base + key, name);
            EXPECT_TRUE(value && value->type == REG_SZ) << U8(key) << " " << U8(name);
            EXPECT_EQ(U8(world().registry.String(root, base + key, name).value_or(u"-")), U8(data)) << U8(key);
            ++expected[AsciiUpper(key)];
        }
        expected[AsciiUpper(kAppIdKey)] += appIdValues;
        EXPECT_EQ(Keys(root, classes), expected);
    }

    sim::Service* TheService() { return world().services.Find(u"Tarnwick Hot Folders"); }
};

// -RegServer replaces what an older registration left in its keys and keeps
// other programs' keys; the per-user switches do the same below the user's
// classes, each form apart; unregistering leaves only the other programs' keys.
TEST_F(RegistrationTest, RegServerWritesExactlyTheTablesAndUnregServerRemovesThem)
{
    world().registry.SetString(HKEY_CLASSES_ROOT, kClass + u"\\InprocServer32", u"", u"old.dll");
    world().registry.SetString(HKEY_CLASSES_ROOT, kClassKey, u"Stale", u"x");
    world().registry.SetString(HKEY_CLASSES_ROOT, kClass + u"\\Programmable\\Old", u"", u"x");
    EXPECT_EQ(Run(u"/regserver"), 0);
    ExpectOnlyTables(HKEY_CLASSES_ROOT, u"");
    EXPECT_EQ(TheService(), nullptr);
    EXPECT_EQ(world().registry.Find(u"HKEY_LOCAL_MACHINE\\" + std::u16string(kEventSource)), nullptr);
    EXPECT_EQ(world().processes.threadsCreated, 0) << "a one-shot switch starts no supervisor";

    EXPECT_EQ(Run(u"-RegServerPerUser"), 0);
    ExpectOnlyTables(HKEY_CURRENT_USER, u"Software\\Classes");
    auto const& libraries = world().com.typeLibraries;  // the file, and whether per user
    ASSERT_EQ(libraries.size(), 2u);
    EXPECT_EQ(U8(libraries[0].file + libraries[1].file) + std::to_string(libraries[0].perUser) +
                  std::to_string(libraries[1].perUser),
              U8(kExe) + U8(kExe) + "01");

    EXPECT_EQ(Run(u"-UnregServerPerUser"), 0);
    EXPECT_EQ(Keys(HKEY_CURRENT_USER, u"Software\\Classes"),
              (std::map<std::u16string, std::size_t>{{u"APPID", 0}, {u"CLSID", 0}}));
    ExpectOnlyTables(HKEY_CLASSES_ROOT, u"");
    EXPECT_EQ(Run(u"-UnregServer"), 0);
    EXPECT_EQ(Keys(HKEY_CLASSES_ROOT, u""), kOthers);
    EXPECT_TRUE(libraries.empty());
}

// -Service installs the service (created on demand, then turned automatic),
// and again replaces it; -RegServer then removes it and its LocalService;
// -UnregServer leaves only the event source.
TEST_F(RegistrationTest, ServiceInstallsTheServiceWithItsAccessPermissionAndEventSource)
{
    EXPECT_EQ(Run(u"-Service"), 0);
    TheService()->state = SERVICE_RUNNING;
    EXPECT_EQ(Run(u"-Service"), 0);

    ExpectOnlyTables(HKEY_CLASSES_ROOT, u"", 2);
    EXPECT_EQ(U8(*world().registry.String(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService")), "Tarnwick Hot Folders");
    auto const permission = world().registry.Value(HKEY_CLASSES_ROOT, kAppIdKey, u"AccessPermission");
    std::string hex = std::to_string(permission->type) + ":";
    for (BYTE byte : permission->data) {
        hex += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    }
    EXPECT_EQ(hex,
              "3:"
              "01000480580000006800000000000000140000000200440003000000000014000300000001010000000000010000000000001400"
              "0700000001010000000000050a000000000014000300000001010000000000051200000001020000000000052000000020020000"
              "01020000000000052000000020020000");

    auto const* source = world().registry.Find(u"HKEY_LOCAL_MACHINE\\" + std::u16string(kEventSource));
    ASSERT_NE(source, nullptr);
    std::string values;  // name, type, then the text or the first byte and the size
    for (auto const& v : source->values) {
        values += U8(v.name) + " " + std::to_string(v.type) + " " +
                  (v.type == REG_SZ ? U8(*world().registry.String(HKEY_LOCAL_MACHINE, kEventSource, v.name))
                                    : std::to_string(v.data.at(0)) + std::to_string(v.data.size())) +
                  "|";
    }
    EXPECT_EQ(values, "EventMessageFile 1 " + U8(kExe) + "|TypesSupported 4 74|CategoryMessageFile 1 " + U8(kExe) +
                          "|CategoryCount 4 34|");
    sim::Service const& s = *TheService();  // the running service was stopped, deleted and created again
    EXPECT_EQ(U8(s.displayName + u"|" + s.binaryPath + u"|" + s.dependencies) + "|" + std::to_string(s.serviceType) +
                  std::to_string(s.startType) + std::to_string(s.errorControl) + std::to_string(s.state),
              "Tarnwick Hot Folders|" + U8(kQuotedExe) + "|RPCSS|16211");
    EXPECT_TRUE(world().processes.messageBoxes.empty());

    EXPECT_EQ(Run(u"-RegServer"), 0);
    EXPECT_EQ(TheService(), nullptr);
    ExpectOnlyTables(HKEY_CLASSES_ROOT, u"", 1);  // AccessPermission stays

    EXPECT_EQ(Run(u"-Service"), 0);
    EXPECT_EQ(Run(u"-UnregServer"), 0);
    EXPECT_EQ(TheService(), nullptr);
    EXPECT_EQ(Keys(HKEY_CLASSES_ROOT, u""), kOthers);
    EXPECT_EQ(world().registry.Find(u"HKEY_LOCAL_MACHINE\\" + std::u16string(kEventSource))->values.size(), 4u);
}

// The manager's refusals are shown in message boxes and fail the switch; a
// service already stopping needs no stop; a service found installed is kept.
TEST_F(RegistrationTest, RefusalsOfTheServiceManagerAreShownAndFailTheSwitch)
{
    constexpr HRESULT kFailed = static_cast<HRESULT>(0x80004005u);
    EXPECT_EQ(Run(u"-Service"), 0);
    world().faults.Fail("DeleteService", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-RegServer"), kFailed);
    EXPECT_TRUE(world().registry.Value(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService")) << "nothing else happened";

    world().services.Clear();
    world().faults.Fail("CreateServiceW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-Service"), kFailed);
    auto const& boxes = world().processes.messageBoxes;
    std::string shown;
    for (auto const& box : boxes) {
        shown += U8(box.caption + u": " + box.text) + " " + std::to_string(box.type) + "\n";
    }
    EXPECT_EQ(shown,
              "Tarnwick Hot Folders: Could not delete service 0\nTarnwick Hot Folders: Could not start service 0\n");

    world().processes.messageBoxes.clear();
    EXPECT_EQ(Run(u"-Service"), 0);
    TheService()->state = SERVICE_STOP_PENDING;
    EXPECT_EQ(Run(u"-Service"), 0);
    world().faults.Fail("OpenServiceW", ERROR_ACCESS_DENIED);  // the removal's test cannot see it
    EXPECT_EQ(Run(u"-Service"), 0);
    EXPECT_TRUE(boxes.empty());
}

// A module path that fills its 260-character buffer is no path: the service gets none and stays on demand.
TEST_F(RegistrationTest, AModulePathOfTheWholeBufferIsNotUsed)
{
    world().processes.current.modulePath = u"C:\\" + std::u16string(256, u'x') + u".exe";
    world().processes.current.commandLine = u"x -Service";
    HotFolderMain(nullptr, 1);
    EXPECT_EQ(U8(TheService()->binaryPath) + std::to_string(TheService()->startType), "\"\"3");
}

}  // namespace
}  // namespace hf::test
