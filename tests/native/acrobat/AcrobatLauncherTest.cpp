// Finding Acrobat through the registry and starting it: which values are
// taken, what each failure reports, and how Acrobat is started.
#include "SimTest.h"
#include "acrobat/AcrobatLauncher.h"
#include "platform/Process.h"
#include "platform/sim/SimChildProcesses.h"

#include <cstring>

namespace hf::test {
namespace {

constexpr char16_t kAcrobatExe[] = u"C:\\Program Files\\Adobe\\Acrobat\\Acrobat.exe";

std::vector<BYTE> Utf16Bytes(std::u16string const& text, bool terminated)
{
    std::vector<BYTE> bytes((text.size() + (terminated ? 1 : 0)) * 2, 0);
    std::memcpy(bytes.data(), text.data(), text.size() * 2);
    return bytes;
}

// How the default value of the AcrobatPath key is set up for one row.
struct RegistryRow {
    char const* name;
    bool keyExists;
    bool valueExists;
    DWORD type;
    std::vector<BYTE> data;
    // What the launcher reads, and the event it gives (0: none) with its rendered text.
    std::u16string path;
    DWORD eventId;
    char const* eventText;
};

void PrintTo(RegistryRow const& row, std::ostream* out)
{
    *out << row.name;
}

std::vector<BYTE> OddLength()
{
    std::vector<BYTE> bytes = Utf16Bytes(u"C:\\a.exe", true);
    bytes.push_back(0);
    return bytes;
}

std::vector<RegistryRow> const kRegistryRows = {
    {"MissingKey",
     false,
     false,
     REG_SZ,
     {},
     u"",
     MSG_OPEN_REGISTRY_KEY_FAILED,
     "Failed to open registry key Software\\Tarnwick\\AcrobatPath.  Error code: 2\r\n"},
    {"MissingDefaultValue",
     true,
     false,
     REG_SZ,
     {},
     u"",
     MSG_READ_REGISTRY_VALUE_FAILED,
     "Failed to read registry key Software\\Tarnwick\\AcrobatPath, value .  Error code: 2\r\n"},
    {"BinaryValue", true, true, REG_BINARY, Utf16Bytes(kAcrobatExe, true), u"", MSG_READ_REGISTRY_VALUE_FAILED,
     "Failed to read registry key Software\\Tarnwick\\AcrobatPath, value .  Error code: 13\r\n"},
    {"DwordValue",
     true,
     true,
     REG_DWORD,
     {1, 0, 0, 0},
     u"",
     MSG_READ_REGISTRY_VALUE_FAILED,
     "Failed to read registry key Software\\Tarnwick\\AcrobatPath, value .  Error code: 13\r\n"},
    {"OddLength", true, true, REG_SZ, OddLength(), u"", MSG_READ_REGISTRY_VALUE_FAILED,
     "Failed to read registry key Software\\Tarnwick\\AcrobatPath, value .  Error code: 13\r\n"},
    {"NoTerminator", true, true, REG_SZ, Utf16Bytes(kAcrobatExe, false), u"", MSG_READ_REGISTRY_VALUE_FAILED,
     "Failed to read registry key Software\\Tarnwick\\AcrobatPath, value .  Error code: 13\r\n"},
    {"PlainString", true, true, REG_SZ, Utf16Bytes(kAcrobatExe, true), kAcrobatExe, 0, ""},
    {"ExpandableStringTakenAsItStands", true, true, REG_EXPAND_SZ,
     Utf16Bytes(u"%ProgramFiles%\\Adobe\\Acrobat.exe", true), u"%ProgramFiles%\\Adobe\\Acrobat.exe", 0, ""},
    {"TextEndsAtTheFirstNul", true, true, REG_SZ, Utf16Bytes(std::u16string(u"C:\\a.exe\0junk", 13), true),
     u"C:\\a.exe", 0, ""},
    {"Exactly255Characters", true, true, REG_SZ, Utf16Bytes(u"C:\\" + std::u16string(252, u'a'), true),
     u"C:\\" + std::u16string(252, u'a'), 0, ""},
};

class AcrobatPathTest : public SimTest, public ::testing::WithParamInterface<RegistryRow> {
protected:
    AcrobatPathTest() : fixtureHandles_(HandlesLeftOpen()) {}
    // Handles the code under test left open (the reporter's own excluded).
    long HandlesLeft() const { return HandlesLeftOpen() - fixtureHandles_; }
    void Arrange(RegistryRow const& row)
    {
        if (row.valueExists) {
            world().registry.SetRaw(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", row.type, row.data);
        } else if (row.keyExists) {
            world().registry.CreateKey(HKEY_LOCAL_MACHINE, kAcrobatPathKey);
        }
    }
    EventReporter reporter{kCategoryUser};
    long fixtureHandles_;
};

TEST_P(AcrobatPathTest, ReadsOnlyAWellFormedStringValue)
{
    RegistryRow const& row = GetParam();
    Arrange(row);
    EXPECT_EQ(U8(GetAcrobatPath(reporter)), U8(row.path));
    if (row.eventId == 0) {
        EXPECT_TRUE(EventIds().empty());
    } else {
        ASSERT_EQ(EventIds(), std::vector<DWORD>{row.eventId});
        EXPECT_EQ(OnlyEvent(row.eventId).type, EVENTLOG_ERROR_TYPE);
        EXPECT_EQ(RenderedEvents().front(), row.eventText);
    }
    EXPECT_EQ(HandlesLeft(), 0) << "the key is closed";
}

INSTANTIATE_TEST_SUITE_P(Values, AcrobatPathTest, ::testing::ValuesIn(kRegistryRows),
                         [](auto const& info) { return std::string(info.param.name); });

class AcrobatLauncherTest : public SimTest {
protected:
    AcrobatLauncherTest() : fixtureHandles_(HandlesLeftOpen()) {}
    // Handles the code under test left open (the reporter's own excluded).
    long HandlesLeft() const { return HandlesLeftOpen() - fixtureHandles_; }
    void SetPath(std::u16string const& path, DWORD type = REG_SZ)
    {
        world().registry.SetString(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", path, type);
    }
    EventReporter reporter{kCategoryUser};
    long fixtureHandles_;
};

// 256 characters do not fit the 512-byte read: the exception that nobody
// catches ends the watcher.
TEST_F(AcrobatLauncherTest, A256CharacterPathThrowsInvalidArgument)
{
    SetPath(u"C:\\" + std::u16string(253, u'a'));
    try {
        GetAcrobatPath(reporter);
        ADD_FAILURE() << "no exception";
    } catch (HResultError const& error) {
        EXPECT_EQ(error.Code(), E_INVALIDARG);
    }
    EXPECT_TRUE(EventIds().empty());
}

TEST_F(AcrobatLauncherTest, ReadRegistryStringEmptiesTheTextOnFailure)
{
    world().registry.SetRaw(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", REG_BINARY, {1, 2});
    UniqueRegistryKey key;
    ASSERT_EQ(os::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAcrobatPathKey, 0, KEY_READ, key.put()), 0);
    std::u16string text = u"left over";
    EXPECT_EQ(ReadRegistryString(key.get(), u"", text), static_cast<LONG>(ERROR_INVALID_DATA));
    EXPECT_TRUE(text.empty());
    text = u"left over";
    EXPECT_EQ(ReadRegistryString(key.get(), u"Missing", text), static_cast<LONG>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(text.empty());
}

TEST_F(AcrobatLauncherTest, StartsThePathWithItsBareFileNameAsCommandLine)
{
    SetPath(kAcrobatExe);
    world().processes.children.AddImage(kAcrobatExe);

    UniqueKernelHandle acrobat(LaunchAcrobat(reporter));
    ASSERT_TRUE(acrobat);
    ASSERT_EQ(world().processes.children.Started().size(), 1u);
    sim::ChildProcess const& started = *world().processes.children.Started().front();
    EXPECT_EQ(U8(started.applicationName), U8(kAcrobatExe));
    EXPECT_EQ(U8(started.commandLine), "Acrobat.exe");
    EXPECT_EQ(started.inheritHandles, FALSE);
    EXPECT_EQ(started.creationFlags, 0u);
    EXPECT_EQ(started.startupInfoSize, 68u);
    EXPECT_TRUE(EventIds().empty());

    EXPECT_EQ(os::WaitForSingleObject(acrobat.get(), 0), WAIT_TIMEOUT) << "the handle is Acrobat's process";
    EXPECT_EQ(HandlesLeft(), 1) << "the thread handle is closed at once";
    acrobat.reset();
    EXPECT_EQ(started.HandlesOpen(), 0);
}

TEST_F(AcrobatLauncherTest, ExpandableValueIsStartedUnexpandedAndFails)
{
    SetPath(u"%ProgramFiles%\\Adobe\\Acrobat.exe", REG_EXPAND_SZ);
    world().processes.children.AddImage(u"C:\\Program Files\\Adobe\\Acrobat.exe");

    EXPECT_EQ(LaunchAcrobat(reporter), nullptr);
    EXPECT_TRUE(world().processes.children.Started().empty());
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{"CreateProcess(Acrobat.exe) failed.  Error code: 2\r\n"});
}

TEST_F(AcrobatLauncherTest, MissingKeyReports47Then30)
{
    EXPECT_EQ(LaunchAcrobat(reporter), nullptr);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_OPEN_REGISTRY_KEY_FAILED, MSG_CREATE_PROCESS_ACROBAT_FAILED}));
    EXPECT_EQ(world().eventLog.Records().back().type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(world().eventLog.Records().back().category, kCategoryUser);
}

TEST_F(AcrobatLauncherTest, BrokenValueReports48Then30)
{
    world().registry.SetRaw(HKEY_LOCAL_MACHINE, kAcrobatPathKey, u"", REG_SZ, Utf16Bytes(kAcrobatExe, false));
    EXPECT_EQ(LaunchAcrobat(reporter), nullptr);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_READ_REGISTRY_VALUE_FAILED, MSG_CREATE_PROCESS_ACROBAT_FAILED}));
}

TEST_F(AcrobatLauncherTest, ProgramThatCannotStartReports30WithTheSystemsCode)
{
    SetPath(kAcrobatExe);
    world().processes.children.AddImage(kAcrobatExe);
    world().faults.Fail("CreateProcessW", 193);  // ERROR_BAD_EXE_FORMAT
    EXPECT_EQ(LaunchAcrobat(reporter), nullptr);
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{"CreateProcess(Acrobat.exe) failed.  Error code: 193\r\n"});
    EXPECT_EQ(HandlesLeft(), 0);
}

// Nothing is remembered between launches: every failure reports again.
TEST_F(AcrobatLauncherTest, EachFailedLaunchReportsAgain)
{
    LaunchAcrobat(reporter);
    LaunchAcrobat(reporter);
    EXPECT_EQ(EventIds(), (std::vector<DWORD>{MSG_OPEN_REGISTRY_KEY_FAILED, MSG_CREATE_PROCESS_ACROBAT_FAILED,
                                              MSG_OPEN_REGISTRY_KEY_FAILED, MSG_CREATE_PROCESS_ACROBAT_FAILED}));

    SetPath(kAcrobatExe);
    world().processes.children.AddImage(kAcrobatExe);
    UniqueKernelHandle acrobat(LaunchAcrobat(reporter));
    EXPECT_TRUE(acrobat) << "the registry is read again at every launch";
}

}  // namespace
}  // namespace hf::test
