// The one-shot switches run whole, as an administrator runs them.
#include "Entry.h"
#include "SimTest.h"
#include "service/OneShotSwitches.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

namespace hf::test {
namespace {

// The switch is found in the raw command line, the program's path included: a whole word after "-" or "/".
TEST(OneShotSwitches, AreFoundByTheRawLineRules)
{
    std::pair<const char16_t*, OneShotSwitch> const lines[] = {
        {u"\"C:\\hf.exe\" -RegServer2 -Services \"-RegServer\" - RegServer -pause", OneShotSwitch::None},
        {u"\"C:\\Tools -RegServer \\hf.exe\"", OneShotSwitch::RegServer},
        {u"C:\\a/Service b\\hf.exe", OneShotSwitch::Service},
        {u"", OneShotSwitch::None},
    };
    for (auto const& [line, expected] : lines) {
        EXPECT_EQ(FindOneShotSwitch(line), expected) << U8(line);
    }
}

constexpr char16_t kExe[] = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";
std::u16string const kClass = u"CLSID\\{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}";
constexpr char16_t kEventSources[] = u"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application";

// A registry branch, a line for each key ("KEY", upper-cased as the registry keeps it) and each value
// ("KEY|name=type:data", "" the default value, data other than text in hex).
using Listing = std::set<std::string>;

// Other programs' keys, which stay.
Listing const kOthers = {"APPID", "APPID\\O.EXE", "APPID\\O.EXE|AppID=1:{o}", "CLSID", "CLSID\\{0}", "CLSID\\{0}|=1:x"};

// A file of the source tree, which ctest names to the suite.
std::vector<BYTE> SourceFile(std::string const& relative)
{
    char const* source = std::getenv("HF_SOURCE_DIR");
    EXPECT_NE(source, nullptr) << "run the suite through ctest";
    std::ifstream file(std::string(source ? source : ".") + "/" + relative, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// What a switch must write, as the Wine stories' registration.py lists it (not from the REGISTRY resources):
// "server", "service", "service-then-server" (-RegServer took LocalService away) or "events"; `listing` besides.
Listing Contract(std::string const& name, Listing listing = {})
{
    std::istringstream lines(ReferenceOutput("tests/wine/e2e/registration.py", name + " '" + U8(kExe) + "'"));
    for (std::string line; std::getline(lines, line);) {
        listing.insert(line);
    }
    return listing;
}

// The branch below `base`, relative to it.
Listing Dump(HKEY root, std::u16string const& base)
{
    auto& registry = sim::TheWorld().registry;
    Listing listing;
    for (auto const& path : registry.KeysBelow(root, base)) {
        std::string const key = U8(path).erase(0, base.empty() ? 0 : base.size() + 1);
        listing.insert(key);
        for (auto const& v : registry.Find(sim::Registry::Join(root, path))->values) {
            std::string data = v.type == REG_SZ ? U8(*registry.String(root, path, v.name)) : "";
            for (BYTE byte : v.type == REG_SZ ? std::vector<BYTE>{} : v.data) {
                data += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
            }
            listing.insert(key + "|" + U8(v.name) + "=" + std::to_string(v.type) + ":" + data);
        }
    }
    listing.erase("");  // `base` itself
    return listing;
}

using RegistrationTest = SimTest;

// One machine's registrations in turn. -RegServer replaces what an older registration left in its keys and keeps
// other programs' keys; the per-user switches work below the user's classes alone. -Service installs the service
// (created on demand, then turned automatic) and replaces one already there; a service already stopping needs no
// stop, and one that cannot be opened for its removal is kept. The manager's refusals are shown in message boxes
// and fail the switch. -RegServer removes the service and its LocalService, -UnregServer all but other programs'
// keys. A module path that fills its 260-character buffer is no path: the service gets none and stays on demand.
TEST_F(RegistrationTest, OneShotSwitchesWriteExactlyTheContractAndUndoIt)
{
    auto run = [this](std::u16string const& arguments) {
        NewProcess();
        world().processes.current.commandLine = u"\"" + std::u16string(kExe) + u"\" " + arguments;
        return HotFolderMain(nullptr, 1);
    };
    auto theService = [this] { return world().services.Find(u"Tarnwick Hot Folders"); };
    auto& resources = world().processes.current.resources;
    resources[{u"REGISTRY", 101}] = SourceFile("HotFolder/service/AppId.rgs");
    resources[{u"REGISTRY", 102}] = SourceFile("HotFolder/service/FolderService.rgs");
    resources[{u"TYPELIB", 1}] = {'M', 'S', 'F', 'T'};
    world().registry.SetString(HKEY_CLASSES_ROOT, u"CLSID\\{0}", u"", u"x");
    world().registry.SetString(HKEY_CLASSES_ROOT, u"AppID\\O.EXE", u"AppID", u"{o}");
    world().registry.SetString(HKEY_CLASSES_ROOT, kClass + u"\\InprocServer32", u"", u"old.dll");
    EXPECT_EQ(run(u"/regserver\t-x"), 0);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("server", kOthers));
    EXPECT_TRUE(theService() == nullptr && Dump(HKEY_LOCAL_MACHINE, kEventSources).empty()) << "no service";
    EXPECT_EQ(world().processes.threadsCreated, 0) << "a one-shot switch starts no supervisor";

    EXPECT_EQ(run(u"-RegServerPerUser"), 0);
    auto const& libraries = world().com.typeLibraries;  // the executable's, for the machine, then per user
    ASSERT_EQ(libraries.size(), 2u);
    EXPECT_TRUE(libraries[0].file == kExe && libraries[1].file == kExe && libraries[1].perUser > libraries[0].perUser);
    EXPECT_EQ(run(u"-UnregServerPerUser -RegServer"), 0);  // the leftmost switch counts
    EXPECT_EQ(Dump(HKEY_CURRENT_USER, u"Software\\Classes"), (Listing{"APPID", "CLSID"}));
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("server", kOthers));

    EXPECT_EQ(run(u"-Service"), 0);
    theService()->state = SERVICE_RUNNING;
    EXPECT_EQ(run(u"-Service"), 0);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("service", kOthers));
    EXPECT_EQ(Dump(HKEY_LOCAL_MACHINE, kEventSources), Contract("events"));
    sim::Service const& s = *theService();  // the running service was stopped, deleted and created again
    EXPECT_EQ(U8(s.binaryPath) + std::to_string(s.startType) + std::to_string(s.state), "\"" + U8(kExe) + "\"21");
    theService()->state = SERVICE_STOP_PENDING;
    EXPECT_EQ(run(u"-Service"), 0);
    world().faults.Fail("OpenServiceW", ERROR_ACCESS_DENIED);  // the removal's test cannot see it
    EXPECT_EQ(run(u"-Service"), 0);

    world().faults.Fail("DeleteService", ERROR_ACCESS_DENIED);
    EXPECT_EQ(run(u"-RegServer"), E_FAIL);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("service", kOthers)) << "nothing else happened";
    EXPECT_EQ(run(u"-Service -RegServer"), 0);  // the server switches come first
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("service-then-server", kOthers));  // AccessPermission stays
    world().faults.Fail("CreateServiceW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(run(u"-Service"), E_FAIL);
    std::string shown;
    for (auto const& box : world().processes.messageBoxes) {
        shown += U8(box.caption + u": " + box.text) + " " + std::to_string(box.type) + "\n";
    }
    EXPECT_EQ(shown,
              "Tarnwick Hot Folders: Could not delete service 0\nTarnwick Hot Folders: Could not start service 0\n");

    EXPECT_EQ(run(u"-Service"), 0);
    EXPECT_EQ(run(u"-UnregServer"), 0);
    EXPECT_EQ(theService(), nullptr);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), kOthers);

    world().processes.current.modulePath = u"C:\\" + std::u16string(256, u'x') + u".exe";
    run(u"-Service");
    EXPECT_EQ(U8(theService()->binaryPath) + std::to_string(theService()->startType), "\"\"3");
}

}  // namespace
}  // namespace hf::test
