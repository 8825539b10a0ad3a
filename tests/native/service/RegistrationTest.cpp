// The one-shot switches run whole, as an administrator runs them.
#include "Entry.h"
#include "SimTest.h"
#include "service/OneShotSwitches.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>

namespace hf::test {
namespace {

// The switch is found in the raw command line, the program's path included: a whole word after "-" or "/".
TEST(OneShotSwitches, AreFoundByTheRawLineRules)
{
    using S = OneShotSwitch;
    std::pair<const char16_t*, S> const lines[] = {
        {u"\"C:\\hf.exe\" -RegServer2 -Services \"-RegServer\" - RegServer -pause", S::None},
        {u"\"C:\\Tools -RegServer \\hf.exe\"", S::RegServer},
        {u"C:\\a/Service b\\hf.exe", S::Service},
        {u"", S::None},
    };
    for (auto const& [line, expected] : lines) {
        EXPECT_EQ(FindOneShotSwitch(line), expected) << U8(line);
    }
}

constexpr char16_t kExe[] = u"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe";
constexpr char16_t kQuotedExe[] = u"\"C:\\Program Files\\Tarnwick\\TarnwickHotFolder.exe\"";
constexpr char16_t kAppIdKey[] = u"AppID\\{C04A1F20-6D3A-4888-9FEE-A82D8DA28254}";
std::u16string const kClass = u"CLSID\\{B1E2C7AA-DF7A-4F02-AD05-C3F27A97D15B}";
constexpr char16_t kEventSources[] = u"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application";

// The keys and values below a key, a line each: "KEY|name=type:data" for a value ("" is the default value),
// text data as text and other data in hex; "KEY" for a key without values. Keys are upper-cased, as the
// registry keeps them.
using Listing = std::set<std::string>;

// Other programs' keys, which stay.
Listing const kOthers = {"APPID", "APPID\\OTHER.EXE|AppID=1:{other}", "CLSID", "CLSID\\{0}|=1:x"};

std::string SourcePath(std::string const& relative)
{
    char const* source = std::getenv("HF_SOURCE_DIR");
    EXPECT_NE(source, nullptr) << "run the suite through ctest";
    return std::string(source ? source : ".") + "/" + relative;
}

std::vector<BYTE> SourceFile(std::string const& relative)
{
    std::ifstream file(SourcePath(relative), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// What a switch must write, from the contract as the Wine stories' reference writes it out (not from the REGISTRY
// resources): "server" (both tables), "service" (with LocalService and AccessPermission), "service-then-server"
// (-RegServer took LocalService away) or "events" (the event source's key); with `more` besides.
Listing Contract(std::string const& name, Listing more = {})
{
    std::string const command =
        "python3 " + SourcePath("tests/wine/e2e/registration.py") + " " + name + " '" + U8(kExe) + "'";
    Listing listing = std::move(more);
    FILE* const pipe = popen(command.c_str(), "r");
    for (char line[512]; pipe && std::fgets(line, sizeof line, pipe) != nullptr;) {
        listing.insert(std::string(line, std::strcspn(line, "\n")));
    }
    EXPECT_EQ(pipe ? pclose(pipe) : -1, 0) << command;
    return listing;
}

class RegistrationTest : public SimTest {
protected:
    RegistrationTest()
    {
        auto& resources = world().processes.current.resources;
        resources[{u"REGISTRY", 101}] = SourceFile("HotFolder/service/AppId.rgs");
        resources[{u"REGISTRY", 102}] = SourceFile("HotFolder/service/FolderService.rgs");
        resources[{u"TYPELIB", 1}] = {'M', 'S', 'F', 'T'};
        world().registry.SetString(HKEY_CLASSES_ROOT, u"CLSID\\{0}", u"", u"x");
        world().registry.SetString(HKEY_CLASSES_ROOT, u"AppID\\Other.EXE", u"AppID", u"{other}");
    }

    int Run(std::u16string const& arguments)
    {
        NewProcess();
        world().processes.current.commandLine = std::u16string(kQuotedExe) + u" " + arguments;
        return HotFolderMain(nullptr, 1);
    }

    // The keys and values below `base`, relative to it.
    Listing Dump(HKEY root, std::u16string const& base)
    {
        Listing listing;
        std::size_t const skip = base.empty() ? 0 : base.size() + 1;
        for (auto const& path : world().registry.KeysBelow(root, base)) {
            if (path.size() <= skip) {
                continue;  // the base itself
            }
            std::string const key = U8(path.substr(skip));
            auto const& values = world().registry.Find(sim::Registry::RootName(root) + u"\\" + path)->values;
            for (auto const& v : values) {
                std::string data = v.type == REG_SZ ? U8(*world().registry.String(root, path, v.name)) : "";
                for (BYTE byte : v.type == REG_SZ ? std::vector<BYTE>{} : v.data) {
                    data += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
                }
                listing.insert(key + "|" + U8(v.name) + "=" + std::to_string(v.type) + ":" + data);
            }
            if (values.empty()) {
                listing.insert(key);
            }
        }
        return listing;
    }

    sim::Service* TheService() { return world().services.Find(u"Tarnwick Hot Folders"); }
};

// One machine's registrations in turn. -RegServer replaces what an older registration left in its keys and
// keeps other programs' keys; the per-user switches do the same below the user's classes, each form apart.
// -Service installs the service (created on demand, then turned automatic) and replaces one already there;
// a service already stopping needs no stop, and one that cannot be opened for its removal is kept. The
// manager's refusals are shown in message boxes and fail the switch. -RegServer removes the service and its
// LocalService; -UnregServer leaves only the other programs' keys and the event source. A module path that
// fills its 260-character buffer is no path: the service gets none and stays on demand.
TEST_F(RegistrationTest, OneShotSwitchesWriteExactlyTheContractAndUndoIt)
{
    world().registry.SetString(HKEY_CLASSES_ROOT, kClass + u"\\InprocServer32", u"", u"old.dll");
    world().registry.SetString(HKEY_CLASSES_ROOT, kClass, u"Stale", u"x");
    world().registry.SetString(HKEY_CLASSES_ROOT, kClass + u"\\Programmable\\Old", u"", u"x");
    EXPECT_EQ(Run(u"/regserver\t-x"), 0);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("server", kOthers));
    EXPECT_TRUE(TheService() == nullptr && Dump(HKEY_LOCAL_MACHINE, kEventSources).empty()) << "no service";
    EXPECT_EQ(world().processes.threadsCreated, 0) << "a one-shot switch starts no supervisor";

    EXPECT_EQ(Run(u"-RegServerPerUser"), 0);
    EXPECT_EQ(Dump(HKEY_CURRENT_USER, u"Software\\Classes"), Contract("server"));
    auto const& libraries = world().com.typeLibraries;  // the executable's, for the machine, then per user
    ASSERT_EQ(libraries.size(), 2u);
    EXPECT_TRUE(libraries[0].file == kExe && libraries[1].file == kExe && libraries[1].perUser > libraries[0].perUser);
    EXPECT_EQ(Run(u"-UnregServerPerUser -RegServer"), 0);  // the leftmost switch counts
    EXPECT_EQ(Dump(HKEY_CURRENT_USER, u"Software\\Classes"), (Listing{"APPID", "CLSID"}));
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("server", kOthers));

    EXPECT_EQ(Run(u"-Service"), 0);
    TheService()->state = SERVICE_RUNNING;
    EXPECT_EQ(Run(u"-Service"), 0);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("service", kOthers));
    EXPECT_EQ(Dump(HKEY_LOCAL_MACHINE, kEventSources), Contract("events"));
    sim::Service const& s = *TheService();  // the running service was stopped, deleted and created again
    EXPECT_EQ(U8(s.binaryPath) + std::to_string(s.startType) + std::to_string(s.state), U8(kQuotedExe) + "21");
    TheService()->state = SERVICE_STOP_PENDING;
    EXPECT_EQ(Run(u"-Service"), 0);
    world().faults.Fail("OpenServiceW", ERROR_ACCESS_DENIED);  // the removal's test cannot see it
    EXPECT_EQ(Run(u"-Service"), 0);
    EXPECT_TRUE(world().processes.messageBoxes.empty());

    constexpr HRESULT kFailed = static_cast<HRESULT>(0x80004005u);
    world().faults.Fail("DeleteService", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-RegServer"), kFailed);
    EXPECT_TRUE(world().registry.Value(HKEY_CLASSES_ROOT, kAppIdKey, u"LocalService")) << "nothing else happened";
    EXPECT_EQ(Run(u"-Service -RegServer"), 0);  // the server switches come first
    EXPECT_EQ(TheService(), nullptr);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), Contract("service-then-server", kOthers));  // AccessPermission stays
    world().faults.Fail("CreateServiceW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(u"-Service"), kFailed);
    std::string shown;
    for (auto const& box : world().processes.messageBoxes) {
        shown += U8(box.caption + u": " + box.text) + " " + std::to_string(box.type) + "\n";
    }
    EXPECT_EQ(shown,
              "Tarnwick Hot Folders: Could not delete service 0\nTarnwick Hot Folders: Could not start service 0\n");

    EXPECT_EQ(Run(u"-Service"), 0);
    EXPECT_EQ(Run(u"-UnregServer"), 0);
    EXPECT_EQ(TheService(), nullptr);
    EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, u""), kOthers);
    EXPECT_EQ(Dump(HKEY_LOCAL_MACHINE, kEventSources), Contract("events"));
    EXPECT_TRUE(libraries.empty());

    world().processes.current.modulePath = u"C:\\" + std::u16string(256, u'x') + u".exe";
    Run(u"-Service");
    EXPECT_EQ(U8(TheService()->binaryPath) + std::to_string(TheService()->startType), "\"\"3");
}

}  // namespace
}  // namespace hf::test
