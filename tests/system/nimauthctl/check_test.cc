// nimauthctl check on hosts that can join and on hosts that cannot.

#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

class CheckTest : public ToolHost {
 protected:
    static std::string Failed(int exitStatus, const Words& more = {}) {
        Words words = {"check", "corp.test"};
        words.insert(words.end(), more.begin(), more.end());
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(exitStatus));
        EXPECT_EQ("", result.errors);
        EXPECT_THAT(result.output, HasLine("result: fail"));
        return result.output;
    }
};

TEST_F(CheckTest, HostThatCanJoinPassesAndIsNotChanged) {
    HaveDomain();
    const std::string hosts = ReadFile("/etc/hosts");
    const std::string output = Done({"check", "corp.test/Hosts"});
    EXPECT_THAT(output, Not(HasSubstr("result=fail")));
    EXPECT_THAT(output, AllOf(HasLine("check: provider result=pass found=\"'embedded' loads: API version 2, log-in "
                                      "modules pam_nimauth_embedded.so and nimembedded\""),
                              HasLine("check: domain controller result=pass found=\"'dc1.corp.test' answers\""),
                              HasSubstr("change: /etc/hosts to=\""), HasSubstr(" node01.corp.test node01\"\n")));
    EXPECT_EQ(hosts, ReadFile("/etc/hosts"));
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
}

TEST_F(CheckTest, WithoutADomainItsChecksAreLeftOutAndNoted) {
    EXPECT_THAT(
        Done({"check"}),
        AllOf(Not(HasSubstr("check: domain controller")),
              HasLine("note: not checked, because no domain was given: full name, domain name, domain controller")));
}

TEST_F(CheckTest, EachObstacleFailsWithTheExitStatusOfTheJoin) {
    HaveDomain();
    SetHostName("linux");
    WriteFile("/etc/hosts", "127.0.0.1 localhost\n192.0.2.10 linux.corp.test linux\n");
    EXPECT_THAT(Failed(8), HasSubstr("check: default name result=fail"));
    SetHostName("nosuchhost");
    EXPECT_THAT(Failed(8), HasSubstr("check: host name result=fail found=\"'nosuchhost' does not resolve"));
    SetHostName("node01");
    WriteFile("/etc/hosts", "127.0.0.1 localhost\n192.0.2.10 node01.corp.test node01\n");
    Done({"directory", "controller", "set", "corp.test", "dc1.corp.test", "--reachable", "no"});
    EXPECT_THAT(Failed(9), HasSubstr("check: domain controller result=fail"));
}

TEST_F(CheckTest, JoinedHostIsInAnotherState) {
    HaveJoined();
    EXPECT_THAT(Failed(3),
                HasSubstr("check: membership result=fail found=\"the host is joined to corp.test already\""));
}

TEST_F(CheckTest, OrdinaryUserAndMissingSettingsAreTold) {
    HaveDomain();
    EXPECT_THAT(CtlAsNobody({"check"}), ExitsWith(5));
    fs::remove("/etc/nimbrel/nimauth/provider.conf");
    EXPECT_THAT(Failed(1),
                AllOf(HasSubstr("check: provider settings result=fail"), HasSubstr("check: host name result=pass"),
                      HasLine("note: not checked, because of what failed: provider, membership, domain "
                              "controller")));
}

TEST_F(CheckTest, HungProviderDoesNotHangTheCheck) {
    HaveDomain();
    for (const char* const operation : {"get-active-domain", "get-any-domain-controller"}) {
        Done({"directory", "rehearse", operation, "--delay", "10m"});
    }
    EXPECT_THAT(Failed(9, {"--timeout", "1"}),
                AllOf(HasSubstr("check: membership result=warn"), HasSubstr("check: domain controller result=fail")));
}

TEST_F(CheckTest, FilesThatOthersMayWriteAreNamed) {
    HaveDomain();
    constexpr char kProvider[] = "/usr/libexec/nimauth/libembedded.so";
    constexpr char kSettings[] = "/etc/nimbrel/nimauth/provider.conf";
    const fs::perms before = fs::status(kProvider).permissions();
    fs::permissions(kProvider, fs::perms(0757));
    EXPECT_THAT(Failed(5),
                HasSubstr("check: provider files result=fail found=\"/usr/libexec/nimauth/libembedded.so may "
                          "be written by everybody\" remedy=\"see what they hold now, then: chown root:root "
                          "/usr/libexec/nimauth/libembedded.so && chmod go-w "));
    fs::permissions(kProvider, before);
    fs::permissions(kSettings, fs::perms(0646));
    EXPECT_THAT(Failed(5), HasSubstr("check: settings files result=fail found=\"/etc/nimbrel/nimauth/provider.conf "
                                     "may be written by everybody\""));
    fs::permissions(kSettings, fs::perms(0644));
    fs::permissions("/var/lib/nimbrel/directory.db", fs::perms(0604));
    EXPECT_THAT(Failed(5),
                HasSubstr("check: state files result=fail found=\"/var/lib/nimbrel/directory.db may be read by "
                          "everybody\""));
    fs::permissions("/var/lib/nimbrel/directory.db", fs::perms(0600));
    constexpr char kProxySettings[] = "/etc/nimbrel/nimauth/apxhttps.conf";
    WriteFile("/etc/nimbrel/client.pem", "a key\n");
    WriteFile(kProxySettings, "client-certificate = /etc/nimbrel/client.pem\nclient-key = /etc/nimbrel/client.pem\n");
    EXPECT_THAT(Failed(5),
                HasSubstr("check: proxy files result=fail found=\"/etc/nimbrel/client.pem may be read by everybody\""));
    fs::remove("/etc/nimbrel/client.pem");
    fs::remove(kProxySettings);
    EXPECT_THAT(Done({"check", "corp.test"}), HasLine("check: settings files result=pass found=\"only root may write "
                                                      "/etc/nimbrel/nimauth\""));
}

// ---------------------------------------------------------------- check --joined

std::string JoinedFails(int exitStatus, const Words& more = {}) {
    Words words = {"check", "--joined"};
    words.insert(words.end(), more.begin(), more.end());
    const ProgramResult result = RunProgram(kTool, {.arguments = words});
    EXPECT_THAT(result, ExitsWith(exitStatus));
    EXPECT_EQ("", result.errors);
    EXPECT_THAT(result.output, HasLine("result: fail"));
    return result.output;
}

TEST_F(CheckTest, HostWithoutMembershipFailsAtTheFirstThingThatIsMissing) {
    EXPECT_THAT(JoinedFails(3), HasSubstr("check: store result=fail found=\"the active store is 'None'\" remedy="));
    Done({"store", "set", "Active Directory"});
    EXPECT_THAT(JoinedFails(4), AllOf(HasSubstr("check: membership result=fail found=\"the host is not joined\""),
                                      HasLine("note: not checked, because of what failed: machine account, domain "
                                              "name, domain controller, trust state")));
}

TEST_F(CheckTest, JoinedHostIsCheckedForLogIns) {
    HaveJoined();
    const std::string output = JoinedFails(1);  // log-ins have not been switched on
    EXPECT_THAT(output, AllOf(HasLine("check: membership result=pass found=\"the host is joined to corp.test\""),
                              HasLine("check: machine account result=pass found=\"node01, as the machine account\""),
                              HasLine("check: trust state result=pass found=\"1, healthy\""),
                              HasSubstr("check: name service result=fail"), HasSubstr("check: pam result=fail"),
                              Not(HasSubstr("check: sssd"))));
    Done({"directory", "computer", "disable", "corp.test", "NODE01"});
    EXPECT_THAT(JoinedFails(7), HasSubstr("check: trust state result=fail found=\"4, "));
    SetHostName("node02");
    WriteFile("/etc/hosts", "127.0.0.1 localhost\n192.0.2.10 node02.corp.test node02\n");
    EXPECT_THAT(JoinedFails(8), HasSubstr("check: machine account result=fail found=\"the host is called node02"));
}

TEST_F(CheckTest, JoinedHostWithoutPermissionProviderOrSettings) {
    HaveJoined();
    const ProgramResult nobody = CtlAsNobody({"check", "--joined"});
    EXPECT_THAT(nobody, ExitsWith(5));
    EXPECT_THAT(nobody.output, HasSubstr("check: user result=fail found=\"not root, so other findings may be wrong\""));
    WriteFile("/etc/nimbrel/nimauth/provider.conf", "provider = nosuch\n");
    EXPECT_THAT(JoinedFails(1), AllOf(HasSubstr("check: provider settings result=pass"),
                                      HasSubstr("check: provider result=fail found=\"Unable to open provider: "
                                                "/usr/libexec/nimauth/libnosuch.so: ")));
    fs::remove("/etc/nimbrel/nimauth/provider.conf");
    EXPECT_THAT(JoinedFails(1), AllOf(HasSubstr("check: provider settings result=fail"),
                                      HasSubstr("note: not checked, because of what failed: provider, membership,")));
}

TEST_F(CheckTest, OnATerminalEachCheckHasItsLineAndLongOnesAreWrapped) {
    HaveDomain();
    SetHostName("linux");
    WriteFile("/etc/hosts", "127.0.0.1 localhost\n192.0.2.10 linux.corp.test linux\n");
    const ProgramResult terminal =
        Ctl({"check", "corp.test"}, {.outputOnTerminal = true, .environment = {"TERM=xterm", "NO_COLOR=1"}});
    EXPECT_THAT(terminal, ExitsWith(8));
    EXPECT_THAT(terminal.terminal,
                AllOf(HasSubstr("checks:\r\n  CHECK                 RESULT  FOUND\r\n"
                                "  user                  pass    root\r\n"),
                      HasSubstr("  default name          fail    'linux' is a default name, which a join refuses\r\n"
                                "                                remedy: give the host a name of its own:\r\n"
                                "                                'hostnamectl set-hostname NAME'\r\n"),
                      HasSubstr("\r\nresult:  fail\r\n")));
    std::istringstream lines(terminal.terminal);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 81u) << line;  // with its \r
}

TEST_F(CheckTest, HungProviderIsTold) {
    HaveJoined();
    Done({"directory", "rehearse", "get-active-domain", "--delay", "10m"});
    EXPECT_THAT(JoinedFails(6, {"--timeout", "1"}), HasSubstr("check: membership result=fail found=\"the provider does "
                                                              "not answer in time"));
}

TEST_F(CheckTest, JoinedTakesNoDomain) { EXPECT_THAT(Ctl({"check", "--joined", "corp.test"}), ExitsWith(2)); }

}  // namespace
}  // namespace nimbrel::testing
