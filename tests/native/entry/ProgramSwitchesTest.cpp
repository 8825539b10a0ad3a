// The switch scan: which role a command line chooses, as one table.
#include "ProgramSwitches.h"
#include "WideText.h"
#include "platform/sim/CommandLineSplit.h"

#include <gtest/gtest.h>

namespace hf {
namespace {

enum class Role { Service, Watcher, StartService };

// The role the entry plays for these switches: -startservice first, then the
// watcher, else the service path.
Role RoleOf(ProgramSwitches const& s)
{
    return s.startService ? Role::StartService : s.runWatcher ? Role::Watcher : Role::Service;
}

struct SwitchCase {
    const char16_t* commandLine;
    Role role;
    bool installUser;  // only looked at for the watcher role
    bool asService;    // only looked at for the watcher role
    const char16_t* asUserName;
};

void PrintTo(SwitchCase const& c, std::ostream* out)
{
    *out << ToUtf8(c.commandLine);
}

class SwitchScan : public ::testing::TestWithParam<SwitchCase> {};

TEST_P(SwitchScan, ChoosesTheRoleOfTheCommandLine)
{
    SwitchCase const& c = GetParam();
    auto arguments = sim::SplitCommandLine(c.commandLine, u"C:\\x.exe");
    arguments.erase(arguments.begin());
    ProgramSwitches const s = ScanProgramSwitches(arguments);
    EXPECT_EQ(RoleOf(s), c.role);
    if (c.role == Role::Watcher) {
        EXPECT_EQ(s.installUser, c.installUser);
        EXPECT_EQ(s.asService, c.asService);
    }
    EXPECT_EQ(ToUtf8(s.asUserName), ToUtf8(c.asUserName));
}

INSTANTIATE_TEST_SUITE_P(
    Table, SwitchScan,
    ::testing::Values(
        // command line, role, install-user flag, as-service flag, as-user name
        SwitchCase{u"hf.exe", Role::Service, false, false, u""},
        SwitchCase{u"hf.exe -pause", Role::Service, false, false, u""},
        SwitchCase{u"hf.exe -asuser:DOMAIN\\name", Role::Service, false, false, u"DOMAIN\\name"},
        SwitchCase{u"hf.exe -asuser:DOMAIN\\name -asservice", Role::Watcher, false, true, u"DOMAIN\\name"},
        SwitchCase{u"hf.exe -asuser:A -asuser:B", Role::Service, false, false, u"B"},
        SwitchCase{u"hf.exe -asuser:", Role::Service, false, false, u""},
        SwitchCase{u"hf.exe /CURRENTUSER", Role::Watcher, false, false, u""},
        SwitchCase{u"hf.exe -currentuserfoo", Role::Watcher, false, false, u""},
        SwitchCase{u"hf.exe -CurrentUserXYZ", Role::Watcher, false, false, u""},
        SwitchCase{u"hf.exe -installuser", Role::Watcher, true, false, u""},
        SwitchCase{u"hf.exe -asservice", Role::Watcher, false, true, u""},
        SwitchCase{u"hf.exe -installuser -startservice", Role::StartService, false, false, u""},
        SwitchCase{u"hf.exe -startservice -installuser", Role::StartService, false, false, u""},
        SwitchCase{u"hf.exe -asservice /StartService", Role::StartService, false, false, u""},
        SwitchCase{u"hf.exe -startservicenow", Role::StartService, false, false, u""},
        // a prefix shorter than the keyword matches nothing
        SwitchCase{u"hf.exe -current -install -asserv -start", Role::Service, false, false, u""},
        // -pause ahead of the keywords below it keeps -pauseinstalluser from installing
        SwitchCase{u"hf.exe -pauseinstalluser", Role::Service, false, false, u""},
        // arguments without - or / and unknown switches are ignored
        SwitchCase{u"hf.exe currentuser \\asservice -RegServer", Role::Service, false, false, u""},
        SwitchCase{u"hf.exe -currentuser -RegServer", Role::Watcher, false, false, u""},
        SwitchCase{u"hf.exe \"-asuser:OFFICE\\Jo Doe\" -currentuser", Role::Watcher, false, false, u"OFFICE\\Jo Doe"},
        SwitchCase{u"hf.exe -currentuser -currentuser -installuser", Role::Watcher, true, false, u""},
        // only A to Z fold: a long s is not an s
        SwitchCase{u"hf.exe -currentu\u017Fer", Role::Service, false, false, u""}));

}  // namespace
}  // namespace hf
