// The installed-user store on the simulated machine: what the listing finds
// and reports, what testing one entry answers, what the launch pass makes of
// values it cannot read, and that a password comes back exactly as installed.
#include "SimTest.h"
#include "platform/Constants.h"
#include "supervisor/BinaryValueReader.h"
#include "supervisor/PasswordProtection.h"
#include "supervisor/UserStore.h"
#include "supervisor/WatcherLaunch.h"

#include <functional>
#include <optional>

namespace hf::test {
namespace {

using namespace std::string_literals;

constexpr char16_t kAlice[] = u"OFFICE\\alice";
std::u16string const kLongName = u"OFFICE\\" + std::u16string(150, u'n');

void SetRaw(std::u16string const& name, DWORD type, std::size_t size)
{
    sim::TheWorld().registry.SetRaw(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, name, type, std::vector<BYTE>(size, 0x5A));
}

void Install(std::u16string const& name, std::u16string const& password)
{
    EXPECT_EQ(UserStore::Open().Install(name, password), 0);
}

struct StoreCase {
    const char* name;
    std::function<void()> arrange;  // before the store is opened
    std::vector<std::u16string> listed;
    std::vector<DWORD> reports;
    std::u16string probe;  // the name given to IsInstalled
    LONG probeResult;
    bool probeInstalled;
    std::optional<std::u16string> password;  // what the probe's value opens to
};

class UserStoreTest : public SimTest {};

class UserStoreTable : public SimTest, public ::testing::WithParamInterface<StoreCase> {};

TEST_P(UserStoreTable, ListsReportsAndTestsEntries)
{
    StoreCase const& row = GetParam();
    row.arrange();
    UserStore const store = UserStore::Open();
    EventReporter events(kCategoryService);

    std::vector<std::u16string> users;
    EnumerateUsers(store.key(), events, users);
    EXPECT_EQ(users, row.listed);
    EXPECT_EQ(EventIds(), row.reports);
    for (auto const& record : world().eventLog.WithId(MSG_FOUND_INSTALLED_USER)) {
        EXPECT_EQ(record.type, EVENTLOG_SUCCESS);
    }

    bool installed = !row.probeInstalled;
    EXPECT_EQ(store.IsInstalled(row.probe, installed), row.probeResult);
    EXPECT_EQ(installed, row.probeInstalled);

    BinaryValueReader const value(store.key(), row.probe);
    if (row.password) {
        auto opened = UnprotectPassword(row.probe, value.data(), value.size(), events);
        ASSERT_TRUE(opened);
        EXPECT_EQ(std::u16string(opened->password().c_str(), opened->password().length()), *row.password);
        opened->Wipe();
    }
    if (row.probeResult != 0) {
        // The launch pass skips an unreadable value without a word.
        std::size_t const reported = EventIds().size();
        LaunchWatchers({row.probe}, store.key(), {}, events);
        EXPECT_EQ(EventIds().size(), reported);
        EXPECT_TRUE(world().processes.children.Started().empty());
    }
}

constexpr LONG kTooLong = static_cast<LONG>(ERROR_MORE_DATA);
constexpr LONG kNotBinary = static_cast<LONG>(ERROR_INVALID_DATA);
constexpr LONG kNoKey = static_cast<LONG>(ERROR_INVALID_HANDLE);
std::vector<DWORD> const kFound = {MSG_FOUND_INSTALLED_USER};

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, UserStoreTable, ::testing::Values(
    StoreCase{"EmptyKey", [] {}, {}, {MSG_NO_USERS}, kAlice, 0, false, std::nullopt},
    StoreCase{"NameOfMoreThan64Units", [] { Install(kLongName, u"pw"); }, {kLongName}, kFound,
              kLongName, 0, true, u"pw"},
    StoreCase{"ValueOfMoreThan256Bytes", [] { SetRaw(kAlice, REG_BINARY, 257); }, {kAlice}, kFound,
              kAlice, kTooLong, false, std::nullopt},
    StoreCase{"ValueOfAnotherType", [] { SetRaw(kAlice, REG_SZ, 16); }, {kAlice}, kFound,
              kAlice, kNotBinary, false, std::nullopt},
    StoreCase{"DefaultValueIsAnEmptyName", [] { SetRaw(u"", REG_BINARY, 8); }, {u""}, kFound,
              u"", 0, true, std::nullopt},
    StoreCase{"PasswordWithNuls", [] { Install(kAlice, u"a\0b\0"s); }, {kAlice}, kFound,
              kAlice, 0, true, u"a\0b\0"s},
    StoreCase{"InstallingTwiceKeepsTheSecondPassword",
              [] { Install(kAlice, u"first"); Install(kAlice, u"second"); }, {kAlice}, kFound,
              kAlice, 0, true, u"second"},
    // The listing then fails on the null key, at index 0.
    StoreCase{"KeyThatCannotBeOpened",
              [] { sim::TheWorld().faults.Fail("RegCreateKeyExW", ERROR_ACCESS_DENIED); }, {}, {MSG_ENUM_USER_ERROR},
              kAlice, kNoKey, false, std::nullopt}),
    [](auto const& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(UserStoreTest, UninstallingDeletesTheValueAndAnUnknownNameGives2)
{
    Install(kAlice, u"pw");
    EXPECT_EQ(UserStore::Open().Uninstall(kAlice), 0);
    EXPECT_EQ(UserStore::Open().Uninstall(kAlice), static_cast<LONG>(ERROR_FILE_NOT_FOUND));
}

}  // namespace
}  // namespace hf::test
