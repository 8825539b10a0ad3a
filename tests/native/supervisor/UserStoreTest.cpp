// The installed-user store on the simulated machine: what the listing finds
// and reports, what testing one entry answers, what the launch pass makes of
// values it cannot read, and that a password comes back exactly as installed.
#include "SimTest.h"
#include "platform/Constants.h"
#include "supervisor/BinaryValueReader.h"
#include "supervisor/PasswordProtection.h"
#include "supervisor/UserStore.h"
#include "supervisor/WatcherLaunch.h"

#include <algorithm>
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

struct StoreCase {
    const char* name;
    std::function<void(UserStore const&)> arrange;
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
    UserStore const store = UserStore::Open();
    ASSERT_EQ(store.status(), 0);
    row.arrange(store);
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

INSTANTIATE_TEST_SUITE_P(
    Cases, UserStoreTable,
    ::testing::Values(
        StoreCase{"EmptyKey", [](UserStore const&) {}, {}, {MSG_NO_USERS}, kAlice, 0, false, std::nullopt},
        StoreCase{"NameOfMoreThan64Units",
                  [](UserStore const& s) { s.Install(kLongName, u"pw"); },
                  {kLongName},
                  {MSG_FOUND_INSTALLED_USER},
                  kLongName,
                  0,
                  true,
                  u"pw"},
        StoreCase{"ValueOfMoreThan256Bytes",
                  [](UserStore const&) { SetRaw(kAlice, REG_BINARY, 257); },
                  {kAlice},
                  {MSG_FOUND_INSTALLED_USER},
                  kAlice,
                  static_cast<LONG>(ERROR_MORE_DATA),
                  false,
                  std::nullopt},
        StoreCase{"ValueOfAnotherType",
                  [](UserStore const&) { SetRaw(kAlice, REG_SZ, 16); },
                  {kAlice},
                  {MSG_FOUND_INSTALLED_USER},
                  kAlice,
                  static_cast<LONG>(ERROR_INVALID_DATA),
                  false,
                  std::nullopt},
        StoreCase{"DefaultValueIsAnEmptyName",
                  [](UserStore const&) { SetRaw(u"", REG_BINARY, 8); },
                  {u""},
                  {MSG_FOUND_INSTALLED_USER},
                  u"",
                  0,
                  true,
                  std::nullopt},
        StoreCase{"PasswordWithNuls",
                  [](UserStore const& s) { s.Install(kAlice, u"a\0b\0"s); },
                  {kAlice},
                  {MSG_FOUND_INSTALLED_USER},
                  kAlice,
                  0,
                  true,
                  u"a\0b\0"s},
        StoreCase{"InstallingTwiceKeepsTheSecondPassword",
                  [](UserStore const& s) {
                      s.Install(kAlice, u"first");
                      s.Install(kAlice, u"second");
                  },
                  {kAlice},
                  {MSG_FOUND_INSTALLED_USER},
                  kAlice,
                  0,
                  true,
                  u"second"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(UserStoreTest, AnUnopenableStoreListsNothingAndReportsTheErrorAtIndex0)
{
    world().faults.Fail("RegCreateKeyExW", ERROR_ACCESS_DENIED);
    UserStore const store = UserStore::Open();
    EXPECT_EQ(store.status(), static_cast<LONG>(ERROR_ACCESS_DENIED));
    EventReporter events(kCategoryService);
    std::vector<std::u16string> users;
    EnumerateUsers(store.key(), events, users);
    EXPECT_TRUE(users.empty());
    EXPECT_EQ(RenderedEvents(), std::vector<std::string>{"Unexpected error 6 while enumerating user 0.\r\n"});
}

TEST_F(UserStoreTest, InstallSealsThePasswordAndUninstallOfAnUnknownNameGives2)
{
    UserStore const store = UserStore::Open();
    ASSERT_EQ(store.Install(kAlice, u"s3cret"), 0);
    auto const value = world().registry.Value(HKEY_LOCAL_MACHINE, kUserStoreKeyPath, kAlice);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->type, REG_BINARY);
    std::u16string const clear = u"s3cret";
    auto const* clearBytes = reinterpret_cast<BYTE const*>(clear.data());
    EXPECT_EQ(std::search(value->data.begin(), value->data.end(), clearBytes, clearBytes + clear.size() * 2),
              value->data.end());
    EXPECT_EQ(store.Uninstall(kAlice), 0);
    EXPECT_EQ(store.Uninstall(kAlice), static_cast<LONG>(ERROR_FILE_NOT_FOUND));
}

}  // namespace
}  // namespace hf::test
