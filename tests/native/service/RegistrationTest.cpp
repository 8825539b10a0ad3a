// The one-shot switches run whole, as an administrator runs them: the two
// registration tables, the AppID's own values, the service and its event
// source, the type library. The expected data is written out here from the
// product's registration contract, independently of the REGISTRY resources.
#include "Entry.h"
#include "ServiceIdentity.h"
#include "SimTest.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

namespace hf::test {
namespace {

constexpr char16_t kExe[] = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";
constexpr char16_t kQuotedExe[] = u"\"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe\"";
constexpr char16_t kClsid[] = u"{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}";
constexpr char16_t kClassKey[] = u"CLSID\\{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}";
constexpr char16_t kAppIdKey[] = u"AppID\\{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}";
constexpr char16_t kEventSource[] = u"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application\\Tarnwick Hot Folders";
constexpr HRESULT kFailed = static_cast<HRESULT>(0x80004005u);

// One string value of a table; an empty name is the key's default value.
struct Row {
    std::u16string key;
    std::u16string value;
    std::u16string data;
};

std::vector<Row> const kAppIdTable = {
    {kAppIdKey, u"", u"TarnwickHotFolder"},
    {u"AppID\\TarnwickHotFolder.EXE", u"AppID", kAppId},
};

std::vector<Row> const kClassTable = {
    {u"Tarnwick.FolderService.1", u"", u"FolderService Class"},
    {u"Tarnwick.FolderService.1\\CLSID", u"", kClsid},
    {u"Tarnwick.FolderService", u"", u"FolderService Class"},
    {u"Tarnwick.FolderService\\CLSID", u"", kClsid},
    {u"Tarnwick.FolderService\\CurVer", u"", u"Tarnwick.FolderService.1"},
    {kClassKey, u"", u"FolderService Class"},
    {kClassKey, u"AppID", kAppId},
    {std::u16string(kClassKey) + u"\\ProgID", u"", u"Tarnwick.FolderService.1"},
    {std::u16string(kClassKey) + u"\\VersionIndependentProgID", u"", u"Tarnwick.FolderService"},
    {std::u16string(kClassKey) + u"\\LocalServer32", u"", kQuotedExe},
    {std::u16string(kClassKey) + u"\\TypeLib", u"", kHotFolderLibId},
};

// Keys of the tables that hold no value of their own.
std::vector<std::u16string> const kBareKeys = {u"AppID", u"CLSID", std::u16string(kClassKey) + u"\\Programmable"};

std::vector<BYTE> SourceFile(std::string const& relative)
{
    char const* source = std::getenv("HF_SOURCE_DIR");
    if (source == nullptr) {
        ADD_FAILURE() << "HF_SOURCE_DIR is not set; run the suite through ctest";
        return {};
    }
    std::ifstream file(std::string(source) + "/" + relative, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<BYTE> Bytes(std::string const& hex)
{
    std::vector<BYTE> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 3) {
        bytes.push_back(static_cast<BYTE>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

class RegistrationTest : public SimTest {
protected:
    RegistrationTest()
    {
        auto& resources = world().processes.current.resources;
        resources[{u"REGISTRY", kAppIdTableId}] = SourceFile("HotFolder/service/AppId.rgs");
        resources[{u"REGISTRY", kClassTableId}] = SourceFile("HotFolder/service/FolderService.rgs");
        resources[{u"TYPELIB", 1}] = {'M', 'S', 'F', 'T'};
        // Every Windows machine has these.
        world().registry.CreateKey(HKEY_CLASSES_ROOT, u"AppID");
        world().registry.CreateKey(HKEY_CLASSES_ROOT, u"CLSID");
    }

    int Run(std::u16string const& arguments)
    {
        NewProcess();
        world().processes.current.commandLine = std::u16string(kQuotedExe) + u" " + arguments;
        return HotFolderMain(nullptr, 1);
    }

    std::u16string Key(std::u16string const& classesPath, std::u16string const& key)
    {
        return classesPath.empty() ? key : classesPath + u"\\" + key;
    }

    // Every row of the tables is there, and nothing else: the keys below the
    // classes root are exactly the tables' keys, each with exactly its values
    // (the AppID's key also with the module's own `appIdValues`).
    void ExpectOnlyTables(HKEY root, std::u16string const& classesPath, std::vector<Row> const& rows,
                          std::size_t appIdValues = 0)
    {
        std::set<std::u16string> expectedKeys;
        std::map<std::u16string, std::size_t> valueCounts;
        for (auto const& row : rows) {
            auto const value = world().registry.Value(root, Key(classesPath, row.key), row.value);
            EXPECT_TRUE(value && value->type == REG_SZ) << U8(row.key) << " " << U8(row.value);
            EXPECT_EQ(U8(world().registry.String(root, Key(classesPath, row.key), row.value).value_or(u"(missing)")),
                      U8(row.data))
                << U8(row.key) << " " << U8(row.value);
            for (auto end = row.key.find(u'\\'); end != std::u16string::npos; end = row.key.find(u'\\', end + 1)) {
                expectedKeys.insert(AsciiUpper(row.key.substr(0, end)));
            }
            expectedKeys.insert(AsciiUpper(row.key));
            ++valueCounts[AsciiUpper(row.key)];
        }
        valueCounts[AsciiUpper(kAppIdKey)] += appIdValues;
        for (auto const& bare : kBareKeys) {
            expectedKeys.insert(AsciiUpper(bare));
        }
        std::set<std::u16string> keys;
        std::u16string const prefix = classesPath.empty() ? u"" : AsciiUpper(classesPath) + u"\\";
        for (auto const& key : world().registry.KeysBelow(root, classesPath)) {
            if (key.size() > prefix.size()) {
                keys.insert(key.substr(prefix.size()));
            }
        }
        EXPECT_EQ(Texts(keys), Texts(expectedKeys));
        for (auto const& [key, count] : valueCounts) {
            EXPECT_EQ(world().registry.Find(Registry::RootName(root) + u"\\" + Key(classesPath, key))->values.size(),
                      count)
                << U8(key);
        }
    }

    static std::vector<std::string> Texts(std::set<std::u16string> const& keys)
    {
        std::vector<std::string> texts;
        std::transform(keys.begin(), keys.end(), std::back_inserter(texts), [](auto const& k) { return U8(k); });
        return texts;
    }

    sim::Service* TheService() { return world().services.Find(kServiceName); }

    using Registry = sim::Registry;
};

std::vector<Row> Both()
{
    std::vector<Row> rows = kAppIdTable;
    rows.insert(rows.end(), kClassTable.begin(), kClassTable.end());
    return rows;
}

TEST_F(RegistrationTest, RegServerWritesExactlyTheTwoTablesAndTheTypeLibrary)
{
    EXPECT_EQ(Run(u"-RegServer"), 0);

    ExpectOnlyTables(HKEY_CLASSES_ROOT, u"", Both());
    ASSERT_EQ(world().com.typeLibraries.size(), 1u);
    EXPECT_EQ(U8(world().com.typeLibraries[0].file), U8(kExe));
    EXPECT_FALSE(world().com.typeLibraries[0].perUser);
    EXPECT_EQ(TheService(), nullptr);
    EXPECT_FALSE(world().registry.KeyExists(HKEY_LOCAL_MACHINE, kEventSource));
    EXPECT_EQ(world().processes.threadsCreated, 0) << "a one-shot switch starts no supervisor";
}

TEST_F(RegistrationTest, ReplacedKeysLoseStaleContentAndKeptKeysSurviveUnregistration)
{
    // What an older registration, or another program, left behind.
    world().registry.SetString(HKEY_CLASSES_ROOT, std::u16string(kClassKey) + u"\\InprocServer32", u"", u"old.dll");
    world().registry.SetString(HKEY_CLASSES_ROOT, kClassKey, u"Stale", u"x");
    world().registry.SetString(HKEY_CLASSES_ROOT, std::u16string(kClassKey) + u"\\Programmable\\Old", u"", u"x");
    world().registry.SetString(HKEY_CLASSES_ROOT, u"CLSID\\{00000000-1111-2222-3333-444444444444}", u"", u"Other");
    world().registry.SetString(HKEY_CLASSES_ROOT, u"AppID\\Other.EXE", u"AppID", u"{other}");

    EXPECT_EQ(Run(u"/regserver"), 0);
    EXPECT_FALSE(world().registry.KeyExists(HKEY_CLASSES_ROOT, std::u16string(kClassKey) + u"\\InprocServer32"));
    EXPECT_FALSE(world().registry.Value(HKEY_CLASSES_ROOT, kClassKey, u"Stale"));
    EXPECT_FALSE(world().registry.KeyExists(HKEY_CLASSES_ROOT, std::u16string(kClassKey) + u"\\Programmable\\Old"));

    EXPECT_EQ(Run(u"-UnregServer"), 0);
    std::vector<std::u16string> left;
    for (auto const& key : world().registry.KeysBelow(HKEY_CLASSES_ROOT, u"")) {
        if (!key.empty()) {
            left.push_back(key);
        }
    }
    std::vector<std::u16string> const expected = {u"APPID", u"APPID\\OTHER.EXE", u"CLSID",
                                                  u"CLSID\\{00000000-1111-2222-3333-444444444444}"};
    EXPECT_EQ(left, expected);
    EXPECT_TRUE(world().com.typeLibraries.empty());
}

TEST_F(RegistrationTest, PerUserSwitchesUseTheUsersClassesAndTheUsersTypeLibrary)
{
    EXPECT_EQ(Run(u"-RegServerPerUser"), 0);

    ExpectOnlyTables(HKEY_CURRENT_USER, u"Software\\Classes", Both());
    for (auto const& row : Both()) {
        EXPECT_FALSE(world().registry.Value(HKEY_CLASSES_ROOT, row.key, row.value)) << U8(row.key);
    }
    ASSERT_EQ(world().com.typeLibraries.size(), 1u);
    EXPECT_TRUE(world().com.typeLibraries[0].perUser);

    EXPECT_EQ(Run(u"-UnregServerPerUser"), 0);
    for (auto const& row : Both()) {
        EXPECT_FALSE(world().registry.Value(HKEY_CURRENT_USER, u"Software\\Classes\\" + row.key, row.value));
    }
    EXPECT_TRUE(world().com.typeLibraries.empty());
}

TEST_F(RegistrationTest, ServiceInstallsTheServiceWithItsAccessPermissionAndEventSource)
{
    EXPECT_EQ(Run(u"-Service"), 0);

    ExpectOnlyTables(HKEY_CLASSES_ROOT, u"", Both(), 2);
    EXPECT_EQ(U8(world().registry.String(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService").value_or(u"")),
              "Tarnwick Hot Folders");
    auto const permission = world().registry.Value(HKEY_CLASSES_ROOT, kAppIdKey, u"AccessPermission");
    ASSERT_TRUE(permission);
    EXPECT_EQ(permission->type, REG_BINARY);
    EXPECT_EQ(permission->data,
              Bytes("01 00 04 80 58 00 00 00 68 00 00 00 00 00 00 00 14 00 00 00 02 00 44 00 03 00 00 00 00 00 14 00 "
                    "03 00 00 00 01 01 00 00 00 00 00 01 00 00 00 00 00 00 14 00 07 00 00 00 01 01 00 00 00 00 00 05 "
                    "0a 00 00 00 00 00 14 00 03 00 00 00 01 01 00 00 00 00 00 05 12 00 00 00 01 02 00 00 00 00 00 05 "
                    "20 00 00 00 20 02 00 00 01 02 00 00 00 00 00 05 20 00 00 00 20 02 00 00"));

    auto const source = world().registry.Find(u"HKEY_LOCAL_MACHINE\\" + std::u16string(kEventSource));
    ASSERT_NE(source, nullptr);
    std::vector<std::string> names;
    for (auto const& value : source->values) {
        names.push_back(U8(value.name));
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"EventMessageFile", "TypesSupported", "CategoryMessageFile", "CategoryCount"}));
    EXPECT_EQ(U8(*world().registry.String(HKEY_LOCAL_MACHINE, kEventSource, u"EventMessageFile")), U8(kExe));
    EXPECT_EQ(U8(*world().registry.String(HKEY_LOCAL_MACHINE, kEventSource, u"CategoryMessageFile")), U8(kExe));
    EXPECT_EQ(world().registry.Value(HKEY_LOCAL_MACHINE, kEventSource, u"TypesSupported")->data,
              (std::vector<BYTE>{7, 0, 0, 0}));
    EXPECT_EQ(world().registry.Value(HKEY_LOCAL_MACHINE, kEventSource, u"CategoryCount")->data,
              (std::vector<BYTE>{3, 0, 0, 0}));

    sim::Service* service = TheService();
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(U8(service->displayName), "Tarnwick Hot Folders");
    EXPECT_EQ(service->serviceType, 0x10u);
    EXPECT_EQ(service->startType, 2u) << "created on demand, then changed to automatic";
    EXPECT_EQ(service->errorControl, 1u);
    EXPECT_EQ(U8(service->binaryPath), U8(kQuotedExe));
    EXPECT_EQ(U8(service->dependencies), "RPCSS");
}

TEST_F(RegistrationTest, ServiceTwiceReplacesTheServiceAndEndsTheSame)
{
    EXPECT_EQ(Run(u"-Service"), 0);
    TheService()->state = SERVICE_RUNNING;

    EXPECT_EQ(Run(u"-Service"), 0);
    ASSERT_NE(TheService(), nullptr);
    EXPECT_EQ(TheService()->state, SERVICE_STOPPED) << "the running service was stopped, deleted and created again";
    EXPECT_EQ(TheService()->startType, 2u);
    ExpectOnlyTables(HKEY_CLASSES_ROOT, u"", Both(), 2);
    EXPECT_TRUE(world().processes.messageBoxes.empty());
}

TEST_F(RegistrationTest, RegServerAfterServiceRemovesTheServiceAndItsLocalService)
{
    EXPECT_EQ(Run(u"-Service"), 0);
    EXPECT_EQ(Run(u"-RegServer"), 0);

    EXPECT_EQ(TheService(), nullptr);
    EXPECT_FALSE(world().registry.Value(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService"));
    EXPECT_TRUE(world().registry.Value(HKEY_CLASSES_ROOT, kClassKey + std::u16string(u"\\LocalServer32"), u""));
}

TEST_F(RegistrationTest, UnregServerAfterServiceLeavesOnlyTheEventSource)
{
    EXPECT_EQ(Run(u"-Service"), 0);
    EXPECT_EQ(Run(u"-UnregServer"), 0);

    EXPECT_EQ(TheService(), nullptr);
    for (auto const& row : Both()) {
        EXPECT_FALSE(world().registry.Value(HKEY_CLASSES_ROOT, row.key, row.value)) << U8(row.key);
    }
    EXPECT_FALSE(world().registry.KeyExists(HKEY_CLASSES_ROOT, kAppIdKey));
    EXPECT_TRUE(world().com.typeLibraries.empty());
    EXPECT_EQ(world().registry.Find(u"HKEY_LOCAL_MACHINE\\" + std::u16string(kEventSource))->values.size(), 4u);
}

TEST_F(RegistrationTest, RefusalsOfTheServiceManagerAreShownAndFailTheSwitch)
{
    EXPECT_EQ(Run(u"-Service"), 0);
    world().faults.Fail("DeleteService", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-RegServer"), kFailed);
    ASSERT_EQ(world().processes.messageBoxes.size(), 1u);
    EXPECT_EQ(U8(world().processes.messageBoxes[0].text), "Could not delete service");
    EXPECT_EQ(U8(world().processes.messageBoxes[0].caption), "Tarnwick Hot Folders");
    EXPECT_EQ(world().processes.messageBoxes[0].type, 0u);
    EXPECT_TRUE(world().registry.Value(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService")) << "nothing else happened";

    world().processes.messageBoxes.clear();
    world().services.Remove(kServiceName);
    world().faults.Fail("CreateServiceW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-Service"), kFailed);
    ASSERT_EQ(world().processes.messageBoxes.size(), 1u);
    EXPECT_EQ(U8(world().processes.messageBoxes[0].text), "Could not start service");
}

}  // namespace
}  // namespace hf::test
