// A first-time user's way from an installed host to a joined one and back.

#include <cstdio>
#include <sstream>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class FirstPathTest : public ToolHost {};

TEST_F(FirstPathTest, FromAFreshHostToAJoinedOneAndBack) {
    EXPECT_THAT(Done({"status"}), AllOf(HasLine("active store: None"), HasLine("joined: no")));
    EXPECT_THAT(Done({"directory", "domain", "add", "corp.test"}),
                HasSubstr("domain: corp.test netbios=CORP sid=S-1-5-21-"));
    AddUser("administrator", {"--may-join"});
    EXPECT_THAT(Done({"store", "set", "Active Directory"}), HasLine("active store: Active Directory"));

    const ProgramResult join = CtlWithPassword({"join", "corp.test", "-U", "administrator"});
    EXPECT_THAT(join, ExitsWith(0));
    EXPECT_EQ("", join.errors);
    EXPECT_THAT(join.output,
                AllOf(HasLine("joined: yes"), HasLine("domain: corp.test"), HasLine("organizational unit: none"),
                      HasLine("host name: node01"), HasLine("host name check: passed, hosts file made to fit"),
                      HasLine("machine account: CN=NODE01,CN=Computers,DC=corp,DC=test")));

    EXPECT_THAT(Done({"status"}), AllOf(HasLine("active store: Active Directory"), HasLine("joined: yes"),
                                        HasLine("trust state: 1 (healthy)"), HasLine("trusted domains: none"),
                                        HasLine("own relationship: 1 (own domain)"),
                                        HasLine("stored domain: corp.test"), HasLine("proxy address: none")));

    EXPECT_THAT(Done({"leave"}),
                AllOf(HasLine("joined: no"), HasLine("left: corp.test"), HasLine("stored settings: removed")));
    EXPECT_THAT(Done({"status"}), AllOf(HasLine("joined: no"), HasLine("stored domain: none")));
    EXPECT_THAT(Done({"store", "set", "None"}), HasLine("active store: None"));
}

// Its log-ins are left to the tests that have PAM files of their own.
TEST_F(FirstPathTest, FirstStepsOfTheHelpLeadToAJoinedHost) {
    HaveDomain();
    const std::string help = Done({"--help"});
    std::istringstream lines(help.substr(help.find("\nFirst steps")));
    int steps = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("  nimauthctl ") || line.find(" logins ") != std::string::npos) continue;
        ++steps;
        ProgramOptions options = {.arguments = {"-c", line}};
        if (line.find(" join ") != std::string::npos)
            options.terminal = {{"Password for", std::string(kPassword) + '\n'}};
        EXPECT_THAT(RunProgram("/bin/sh", options), ExitsWith(0)) << line;
    }
    EXPECT_EQ(4, steps);
    EXPECT_THAT(Done({"status"}), AllOf(HasLine("active store: Active Directory"), HasLine("joined: yes"),
                                        HasLine("trust state: 1 (healthy)")));
}

TEST_F(FirstPathTest, JoinPutsTheAccountIntoTheOrganizationalUnit) {
    HaveDomain();
    Done({"directory", "ou", "add", "corp.test", "Hosts/Lab"});
    const ProgramResult join = CtlWithPassword({"join", "corp.test/Hosts/Lab", "--user=administrator"});
    EXPECT_THAT(join, ExitsWith(0));
    EXPECT_THAT(join.output, AllOf(HasLine("organizational unit: Hosts/Lab"),
                                   HasLine("machine account: CN=NODE01,OU=Lab,OU=Hosts,DC=corp,DC=test")));
    EXPECT_THAT(Done({"status"}), HasLine("stored organizational unit: Hosts/Lab"));
}

TEST_F(FirstPathTest, JoinMakesTheHostsFileFitOrLeavesItAlone) {
    HaveDomain();
    WriteFile("/etc/hosts", "127.0.0.1\tlocalhost\n192.0.2.99\tnode01\n");
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
    EXPECT_THAT(ReadFile("/etc/hosts"), HasSubstr("node01.corp.test"));
    Done({"leave"});

    WriteFile("/etc/hosts", "127.0.0.1\tlocalhost\n");
    const ProgramResult join = CtlWithPassword({"join", "corp.test", "-U", "administrator", "--skip-hostname-check"});
    EXPECT_THAT(join, ExitsWith(0));
    EXPECT_THAT(join.output, HasLine("host name check: skipped"));
    EXPECT_EQ("127.0.0.1\tlocalhost\n", ReadFile("/etc/hosts"));
}

TEST_F(FirstPathTest, LeaveAsAUserKeepsTheStoredSettingsAndSaysSo) {
    HaveJoined();
    const ProgramResult leave = CtlWithPassword({"leave", "-U", "administrator"});
    EXPECT_THAT(leave, ExitsWith(0));
    EXPECT_THAT(leave.output, AllOf(HasLine("joined: no"), HasLine("stored settings: kept"), HasSubstr("stay behind")));
    EXPECT_THAT(Done({"directory", "computer", "list"}), HasLine("computers: none"));
    EXPECT_THAT(Done({"status"}),
                AllOf(HasLine("joined: no"), HasLine("stored domain: corp.test"), HasSubstr("note: ")));
}

TEST_F(FirstPathTest, LeaveAloneKeepsTheComputerAccount) {
    HaveJoined();
    Done({"leave"});
    EXPECT_THAT(Done({"directory", "computer", "list"}), HasSubstr("computer: NODE01 domain=corp.test"));
}

TEST_F(FirstPathTest, JoinIfNeededMayBeRepeatedWithoutAPassword) {
    HaveJoined();
    for (const char* const domain : {"corp.test", "CORP.test", "corp", "corp.test/Elsewhere"}) {
        EXPECT_THAT(Done({"join", domain, "-U", "administrator", "--if-needed"}),
                    AllOf(HasLine("joined: yes"), HasLine("changed: no"), HasLine("domain: corp.test")));
    }
}

TEST_F(FirstPathTest, JoinIfNeededJoinsAHostThatIsNotJoined) {
    HaveDomain();
    const ProgramResult join = CtlWithPassword({"join", "corp.test", "-U", "administrator", "--if-needed"});
    EXPECT_THAT(join, ExitsWith(0));
    EXPECT_THAT(join.output, HasLine("changed: yes"));
}

TEST_F(FirstPathTest, StatusShowsTheTrustedDomains) {
    HaveJoined();
    Done({"directory", "trust", "add", "corp.test", "trust.test"});
    Done({"directory", "trust", "add", "corp.test", "out.test", "--direction", "outbound", "--netbios", "OUTER"});
    EXPECT_THAT(Done({"status"}), AllOf(HasSubstr("trusted domain: trust.test netbios=TRUST relationship=5 means="),
                                        HasSubstr("trusted domain: out.test netbios=OUTER relationship=3 means=")));
}

TEST_F(FirstPathTest, WordsForNumbersAreTheConfiguredProvidersOnly) {
    HaveJoined();
    EXPECT_THAT(Done({"status"}), HasLine("trust state: 1 (healthy)"));
    ASSERT_EQ(0, std::rename("/usr/libexec/nimauth/libembedded.so", "/usr/libexec/nimauth/libother.so"));
    WriteFile("/etc/nimbrel/nimauth/provider.conf", "provider = other\n");
    const std::string status = Done({"status"});
    ASSERT_EQ(0, std::rename("/usr/libexec/nimauth/libother.so", "/usr/libexec/nimauth/libembedded.so"));
    EXPECT_THAT(status, HasLine("trust state: 1 (as the provider defines it)"));
}

TEST_F(FirstPathTest, HelpOfEveryCommandNeedsNothingFromTheHost) {
    EXPECT_THAT(Done({"--help"}), HasSubstr("directory domain add"));
    EXPECT_THAT(Done({"join", "--help"}), HasSubstr("nimauthctl join corp.test -U administrator"));
    EXPECT_THAT(Done({"directory", "--help"}), HasSubstr("It is not a real domain"));
    EXPECT_THAT(Done({"--version"}), Not(HasSubstr("error")));
}

TEST_F(FirstPathTest, StoresAreListedAndShown) {
    EXPECT_EQ("store: Active Directory active=no\nstore: None active=yes\n", Done({"store", "list"}));
    Done({"store", "set", "Active Directory"});
    EXPECT_EQ("store: Active Directory active=yes\nstore: None active=no\n", Done({"store", "list"}));
    EXPECT_EQ("active store: Active Directory\n", Done({"store", "show"}));
    EXPECT_THAT(ReadFile("/etc/nimbrel/nimauth/authentication.conf"),
                HasLine("remote-authentication-store = \"Active Directory\""));
    Done({"store", "set", "Active Directory"});
    EXPECT_THAT(ReadFile("/etc/nimbrel/nimauth/authentication.conf"), HasSubstr("Active Directory"));
}

TEST_F(FirstPathTest, OptionsAreListedReadAndSet) {
    constexpr char kOption[] = "UserVars.ActiveDirectoryVerifyAPXCertificate";
    EXPECT_THAT(Done({"option", "list"}),
                HasSubstr("option: UserVars.ActiveDirectoryVerifyAPXCertificate type=integer value=1"));
    EXPECT_THAT(Done({"option", "get", kOption}), HasLine("value: 1"));
    for (const char* const value : {"0", "-5", "9223372036854775807"}) {
        EXPECT_THAT(Done({"option", "set", kOption, value}), HasLine(std::string("value: ") + value));
        EXPECT_THAT(Done({"option", "get", kOption}), HasLine(std::string("value: ") + value));
    }
}

TEST_F(FirstPathTest, ConfigShowsEverySettingWithItsSource) {
    HaveJoined();
    EXPECT_THAT(
        Done({"config", "show"}),
        AllOf(
            HasLine("setting: remote-authentication-store value=\"Active Directory\" "
                    "from=/etc/nimbrel/nimauth/authentication.conf"),
            HasLine("setting: provider value=embedded from=/etc/nimbrel/nimauth/provider.conf"),
            HasLine("setting: provider value=apxhttps from=/etc/nimbrel/nimauth/apxprovider.conf"),
            HasLine("setting: domain_name value=corp.test from=\"configuration store orb/identity/active_directory\""),
            HasLine("setting: UserVars.ActiveDirectoryVerifyAPXCertificate value=1 from=\"advanced options\""),
            HasLine("file: /var/lib/nimbrel/configstore.db state=ok")));
}

}  // namespace
}  // namespace nimbrel::testing
