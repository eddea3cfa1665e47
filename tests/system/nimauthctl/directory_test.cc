// The embedded directory through the tool.

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class DirectoryTest : public ToolHost {
 protected:
    void SetUp() override {
        ToolHost::SetUp();
        HaveDomain();
    }
};

TEST_F(DirectoryTest, DomainsAreAddedListedAndRemoved) {
    EXPECT_THAT(Done({"directory", "domain", "add", "Lab.Test", "--netbios", "LABOR"}),
                HasSubstr("domain: lab.test netbios=LABOR sid="));
    EXPECT_THAT(Done({"directory", "domain", "list"}),
                AllOf(HasSubstr("domain: corp.test "), HasSubstr("domain: lab.test ")));
    EXPECT_THAT(Ctl({"directory", "domain", "add", "corp.test"}), ExitsWith(3));
    EXPECT_THAT(Done({"directory", "domain", "remove", "LABOR"}), HasLine("removed domain: LABOR"));
    EXPECT_THAT(Done({"directory", "domain", "list"}), Not(HasSubstr("lab.test")));
    EXPECT_THAT(Ctl({"directory", "domain", "remove", "lab.test"}), ExitsWith(1));
    EXPECT_THAT(Ctl({"directory", "domain", "add", "bad..name"}), ExitsWith(1));
}

TEST_F(DirectoryTest, UsersKeepWhatIsNotChanged) {
    Done({"directory", "ou", "add", "corp.test", "Hosts"});
    EXPECT_THAT(
        Done({"directory", "user", "set", "corp.test", "alice", "--locked", "yes", "--delegate", "Hosts"}),
        HasLine("user: alice domain=corp.test may-join=no disabled=no locked=yes expired=no password-expired=no "
                "must-change-password=no delegated=Hosts"));
    EXPECT_THAT(
        Done({"directory", "user", "set", "CORP", "ALICE", "--locked=no", "--expired=yes"}),
        HasLine("user: alice domain=corp.test may-join=no disabled=no locked=no expired=yes password-expired=no "
                "must-change-password=no delegated=Hosts"));
    EXPECT_THAT(Done({"directory", "user", "set", "corp.test", "alice", "--no-delegation"}),
                HasSubstr("delegated=\"\""));
    EXPECT_THAT(CtlWithPassword({"directory", "user", "add", "corp.test", "Alice"}), ExitsWith(3));
    Done({"directory", "user", "remove", "corp.test", "alice"});
    EXPECT_THAT(Done({"directory", "user", "list", "corp.test"}), Not(HasSubstr("alice")));
    EXPECT_THAT(Ctl({"directory", "user", "remove", "corp.test", "alice"}), ExitsWith(1));
    EXPECT_THAT(Ctl({"directory", "user", "set", "corp.test", "alice", "--locked=no"}), ExitsWith(1));
}

TEST_F(DirectoryTest, UnitThatIsNotThereLeavesTheUserAsItWas) {
    const std::string before = Done({"directory", "user", "list", "corp.test"});
    EXPECT_THAT(CtlWithPassword(
                    {"directory", "user", "set", "corp.test", "administrator", "--locked=yes", "--delegate", "Nowhere"},
                    kWrongPassword),
                ExitsWith(1));
    EXPECT_EQ(Done({"directory", "user", "list", "corp.test"}), before);
}

TEST_F(DirectoryTest, NewPasswordReplacesTheOldOne) {
    EXPECT_THAT(CtlWithPassword({"directory", "user", "set", "corp.test", "administrator"}, kWrongPassword),
                ExitsWith(0));
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}, kWrongPassword), ExitsWith(0));
}

TEST_F(DirectoryTest, DelegatedUserJoinsInItsUnitOnly) {
    Done({"directory", "ou", "add", "corp.test", "Hosts/Lab"});
    AddUser("lab", {"--delegate", "Hosts/Lab"});
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "lab"}), ExitsWith(5));
    EXPECT_THAT(CtlWithPassword({"join", "corp.test/Hosts/Lab", "-U", "lab"}), ExitsWith(0));
}

TEST_F(DirectoryTest, UnitsAreAddedListedAndRemoved) {
    EXPECT_THAT(Done({"directory", "ou", "add", "corp.test", "Hosts/Lab"}),
                HasLine("organizational unit: Hosts/Lab domain=corp.test dn=\"OU=Lab,OU=Hosts,DC=corp,DC=test\""));
    EXPECT_THAT(Ctl({"directory", "ou", "add", "corp.test", "hosts/lab"}), ExitsWith(3));
    EXPECT_THAT(Ctl({"directory", "ou", "remove", "corp.test", "Hosts"}), ExitsWith(3));
    Done({"directory", "ou", "remove", "corp.test", "OU=Lab,OU=Hosts,DC=corp,DC=test"});
    EXPECT_THAT(Done({"directory", "ou", "list"}), AllOf(HasSubstr("unit: Hosts "), Not(HasSubstr("Lab"))));
    EXPECT_THAT(Ctl({"directory", "ou", "remove", "corp.test", "Hosts/Lab"}), ExitsWith(1));
}

TEST_F(DirectoryTest, ComputersAreStagedDisabledResetAndRemoved) {
    EXPECT_THAT(
        Done({"directory", "computer", "stage", "corp.test", "node02"}),
        AllOf(HasSubstr("computer: NODE02 domain=corp.test enabled=yes staged=yes"), HasSubstr("one-time secret: ")));
    EXPECT_THAT(Ctl({"directory", "computer", "stage", "corp.test", "node02"}), ExitsWith(3));
    EXPECT_THAT(Ctl({"directory", "computer", "stage", "corp.test", "a name"}), ExitsWith(8));
    EXPECT_THAT(Done({"directory", "computer", "disable", "corp.test", "NODE02"}), HasSubstr("enabled=no"));
    EXPECT_THAT(Done({"directory", "computer", "enable", "corp.test", "node02"}), HasSubstr("enabled=yes"));
    EXPECT_THAT(Done({"directory", "computer", "reset", "corp.test", "node02"}), HasSubstr("computer: NODE02"));
    EXPECT_THAT(Done({"directory", "computer", "remove", "corp.test", "node02"}), HasLine("removed computer: node02"));
    EXPECT_EQ("computers: none\n", Done({"directory", "computer", "list"}));
    EXPECT_THAT(Ctl({"directory", "computer", "enable", "corp.test", "node02"}), ExitsWith(1));
}

TEST_F(DirectoryTest, TrustsAreAddedListedAndRemoved) {
    EXPECT_THAT(
        Done({"directory", "trust", "add", "corp.test", "a.test", "--direction", "inbound", "--relationship", "77"}),
        HasLine("trust: a.test domain=corp.test netbios=A direction=inbound relationship=77"));
    EXPECT_THAT(Ctl({"directory", "trust", "add", "corp.test", "a.test"}), ExitsWith(3));
    EXPECT_THAT(Done({"directory", "trust", "list", "corp.test"}), HasSubstr("trust: a.test"));
    Done({"directory", "trust", "remove", "corp.test", "a.test"});
    EXPECT_EQ("trusts: none\n", Done({"directory", "trust", "list"}));
    EXPECT_THAT(Ctl({"directory", "trust", "remove", "corp.test", "a.test"}), ExitsWith(1));
}

TEST_F(DirectoryTest, ControllersAreAddedSetAndRemoved) {
    EXPECT_THAT(
        Done({"directory", "controller", "add", "corp.test", "dc2.corp.test", "--priority", "10", "--unreachable"}),
        HasLine("controller: dc2.corp.test domain=corp.test reachable=no priority=10"));
    EXPECT_THAT(Done({"directory", "controller", "set", "corp.test", "DC2.corp.test", "--reachable=yes"}),
                HasLine("controller: dc2.corp.test domain=corp.test reachable=yes priority=10"));
    EXPECT_THAT(Done({"directory", "controller", "list", "corp.test"}),
                AllOf(HasSubstr("controller: dc1.corp.test"), HasSubstr("controller: dc2.corp.test")));
    Done({"directory", "controller", "remove", "corp.test", "dc2.corp.test"});
    EXPECT_THAT(Done({"directory", "controller", "list"}), Not(HasSubstr("dc2")));
    EXPECT_THAT(Ctl({"directory", "controller", "remove", "corp.test", "dc2.corp.test"}), ExitsWith(1));
}

TEST_F(DirectoryTest, RehearsalsAreShownCountedAndCleared) {
    EXPECT_EQ("rehearsals: none\n", Done({"directory", "rehearse"}));
    EXPECT_THAT(Done({"directory", "rehearse", "join-domain", "--status", "0x576", "--count", "1"}),
                HasLine("rehearsal: join-domain delay-ms=0 status=1398 calls-left=1"));
    EXPECT_THAT(Done({"directory", "rehearse", "get-domain-trust-state", "--value", "-3", "--delay", "1500"}),
                HasLine("rehearsal: get-domain-trust-state delay-ms=1500 value=-3"));
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(7));
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
    EXPECT_THAT(Done({"status"}), HasLine("trust state: -3 (as the provider defines it)"));
    Done({"directory", "rehearse", "--clear", "get-domain-trust-state"});
    EXPECT_THAT(Done({"status"}), HasLine("trust state: 1 (healthy)"));
    EXPECT_EQ("rehearsals: none\n", Done({"directory", "rehearse", "--clear"}));
}

TEST_F(DirectoryTest, ShowTellsEverythingButSecrets) {
    Done({"directory", "ou", "add", "corp.test", "Hosts"});
    Done({"directory", "computer", "stage", "corp.test", "node02", "--ou", "Hosts"});
    Done({"directory", "trust", "add", "corp.test", "trust.test"});
    Done({"directory", "rehearse", "join-domain", "--status", "5"});
    EXPECT_THAT(Done({"directory", "show"}),
                AllOf(HasLine("directory: /var/lib/nimbrel/directory.db"), HasSubstr("\ndomain: corp.test "),
                      HasSubstr("\ncontroller: dc1.corp.test "), HasSubstr("\ntrust: trust.test "),
                      HasSubstr("\norganizational unit: Hosts "), HasSubstr("\nuser: alice "),
                      HasSubstr("\ncomputer: NODE02 "), HasSubstr("\nrehearsal: join-domain ")));
    EXPECT_THAT(Done({"directory", "show"}), Not(HasSubstr("secret")));
}

TEST_F(DirectoryTest, ChangedAccountShowsInTheHostsTrustState) {
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
    Done({"directory", "computer", "reset", "corp.test", "NODE01"});
    EXPECT_THAT(Ctl({"status"}).output, HasLine("trust state: 3 (the host's secret is out of step)"));
    Done({"directory", "computer", "remove", "corp.test", "NODE01"});
    EXPECT_THAT(Ctl({"status"}).output, HasLine("trust state: 5 (the machine account is gone)"));
    Done({"directory", "controller", "set", "corp.test", "dc1.corp.test", "--reachable", "no"});
    EXPECT_THAT(Ctl({"status"}).output, HasLine("trust state: 8 (no domain controller reachable)"));
}

}  // namespace
}  // namespace nimbrel::testing
