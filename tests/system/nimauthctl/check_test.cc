// nimauthctl check on hosts that can join and on hosts that cannot.

#include <filesystem>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class CheckTest : public ToolHost {
 protected:
    static std::string Failed(int exitStatus, const Words& more = {}) {
        Words words = {"check", "corp.test"};
        words.insert(words.end(), more.begin(), more.end());
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(exitStatus));
        EXPECT_EQ("", result.errors);
        EXPECT_THAT(result.output, HasLine("worst: fail"));
        return result.output;
    }
};

TEST_F(CheckTest, HostThatCanJoinPassesAndIsNotChanged) {
    HaveDomain();
    const std::string hosts = ReadFile("/etc/hosts");
    const std::string output = Done({"check", "corp.test/Hosts"});
    EXPECT_THAT(output, Not(HasSubstr("result=fail")));
    EXPECT_THAT(output, AllOf(HasLine("check: provider result=pass finding=\"it loads, API version 2, log-in modules "
                                      "pam_sss.so and sss\""),
                              HasLine("check: domain controller result=pass finding=\"'dc1.corp.test' answers\""),
                              HasSubstr("change: /etc/hosts to=\""), HasSubstr(" node01.corp.test node01\"\n")));
    EXPECT_EQ(hosts, ReadFile("/etc/hosts"));
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
}

TEST_F(CheckTest, WithoutADomainItsChecksAreLeftOutAndNoted) {
    EXPECT_THAT(Done({"check"}), AllOf(Not(HasSubstr("check: domain controller")), HasSubstr("note: no domain")));
}

TEST_F(CheckTest, EachObstacleFailsWithTheExitStatusOfTheJoin) {
    HaveDomain();
    SetHostName("linux");
    WriteFile("/etc/hosts", "127.0.0.1 localhost\n192.0.2.10 linux.corp.test linux\n");
    EXPECT_THAT(Failed(8), HasSubstr("check: default name result=fail"));
    SetHostName("nosuchhost");
    EXPECT_THAT(Failed(8), HasSubstr("check: host name result=fail finding=\"'nosuchhost' does not resolve"));
    SetHostName("node01");
    WriteFile("/etc/hosts", "127.0.0.1 localhost\n192.0.2.10 node01.corp.test node01\n");
    Done({"directory", "controller", "set", "corp.test", "dc1.corp.test", "--reachable", "no"});
    EXPECT_THAT(Failed(9), HasSubstr("check: domain controller result=fail"));
}

TEST_F(CheckTest, JoinedHostIsInAnotherState) {
    HaveJoined();
    EXPECT_THAT(Failed(3),
                HasSubstr("check: membership result=fail finding=\"the host is joined to corp.test already\""));
}

TEST_F(CheckTest, OrdinaryUserAndMissingSettingsAreTold) {
    HaveDomain();
    EXPECT_THAT(CtlAsNobody({"check"}), ExitsWith(5));
    std::filesystem::remove("/etc/nimbrel/nimauth/provider.conf");
    EXPECT_THAT(Failed(1), AllOf(HasSubstr("check: provider settings result=fail"),
                                 HasSubstr("check: provider result=fail"), HasSubstr("check: host name result=pass")));
}

TEST_F(CheckTest, HungProviderDoesNotHangTheCheck) {
    HaveDomain();
    for (const char* const operation : {"get-active-domain", "get-any-domain-controller"}) {
        Done({"directory", "rehearse", operation, "--delay", "10m"});
    }
    EXPECT_THAT(Failed(9, {"--timeout", "1"}),
                AllOf(HasSubstr("check: membership result=warn"), HasSubstr("check: domain controller result=fail")));
}

}  // namespace
}  // namespace nimbrel::testing
