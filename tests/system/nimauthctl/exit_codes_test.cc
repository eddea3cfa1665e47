// Every documented exit status, produced for real.

#include <filesystem>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class ExitCodesTest : public ToolHost {
 protected:
    // The exception's own text first, then cause and remedy.
    static void ExpectExplained(const ProgramResult& result, const std::string& text) {
        EXPECT_THAT(result.errors, StartsWith("error: " + text));
        EXPECT_THAT(result.errors, AllOf(HasSubstr("\ncause: "), HasSubstr("\nremedy: ")));
    }
};

TEST_F(ExitCodesTest, TwoUnknownStore) {
    const ProgramResult result = Ctl({"store", "set", "active directory"});
    EXPECT_THAT(result, ExitsWith(2));
    EXPECT_THAT(result.errors, HasSubstr("'Active Directory', 'None'"));
    EXPECT_THAT(Done({"store", "show"}), HasLine("active store: None"));
}

TEST_F(ExitCodesTest, ThreeJoinedAlready) {
    HaveJoined();
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator"});
    EXPECT_THAT(result, ExitsWith(3));
    ExpectExplained(result, "Exception 0x00000a83: This machine is already joined to a domain.\n");
}

TEST_F(ExitCodesTest, ThreeJoinedElsewhere) {
    HaveJoined();
    const ProgramResult result = Ctl({"join", "other.test", "-U", "administrator", "--if-needed"});
    EXPECT_THAT(result, ExitsWith(3));
    ExpectExplained(result, "the host is joined to corp.test already\n");
}

struct BusyCase {
    const char* operation;
    Words words;
};

TEST_F(ExitCodesTest, ThreeAnotherChangeIsUnderWay) {
    const BusyCase kCases[] = {{"part-domain", {"leave"}},
                               {"set-preferred-domain-controllers", {"dc", "prefer", "dc1.corp.test"}},
                               {"set-smart-card-enabled-services", {"smartcard", "set", "sshd"}},
                               {"set-smart-card-enabled-services", {"smartcard", "change", "+sshd"}}};
    HaveJoined();
    for (const BusyCase& busy : kCases) {
        Done({"directory", "rehearse", busy.operation, "--status", "170"});
        const ProgramResult result = Ctl(busy.words);
        EXPECT_THAT(result, ExitsWith(3)) << busy.operation;
        ExpectExplained(result, "Exception 0x000000aa: ");
    }
}

TEST_F(ExitCodesTest, FourNotJoined) {
    HaveDomain();
    const ProgramResult result = Ctl({"leave"});
    EXPECT_THAT(result, ExitsWith(4));
    ExpectExplained(result, "Exception 0x00000a84: Unknown exception\n");
    EXPECT_THAT(CtlWithPassword({"leave", "-U", "administrator"}), ExitsWith(4));
    EXPECT_THAT(Ctl({"status"}), ExitsWith(0));
}

TEST_F(ExitCodesTest, FourNoDomainToLookForControllersOf) {
    HaveDomain();
    const ProgramResult result = Ctl({"dc", "any"});
    EXPECT_THAT(result, ExitsWith(4));
    ExpectExplained(result, "the host is not joined to a domain\n");
    Done({"dc", "any", "corp.test"});
    EXPECT_THAT(Ctl({"dc", "any", "nosuch.test"}), ExitsWith(9));
}

TEST_F(ExitCodesTest, NineNoControllerOfTheJoinedDomain) {
    HaveJoined();
    Done({"directory", "controller", "set", "corp.test", "dc1.corp.test", "--reachable", "no"});
    EXPECT_THAT(Ctl({"dc", "any"}), ExitsWith(9));
}

// What cannot be known is not claimed.
TEST_F(ExitCodesTest, NineNoControllerAndNoMembershipToBeTold) {
    HaveDomain();
    Done({"directory", "rehearse", "get-active-domain", "--status", "1359"});
    EXPECT_THAT(Ctl({"dc", "any"}), ExitsWith(9));
}

TEST_F(ExitCodesTest, FiveOrdinaryUserIsToldWhy) {
    EXPECT_THAT(CtlAsNobody({"logins", "history"}).errors,
                HasSubstr("\ncause: it reads files that only root may read\n"));
    for (const Words& words : {Words{"leave"}, Words{"smartcard", "set", "--none"}, Words{"logins", "undo"},
                               Words{"dc", "prefer", "--none"}}) {
        EXPECT_THAT(CtlAsNobody(words).errors,
                    HasSubstr("\ncause: it changes files of the host that only root may write\n"));
    }
}

TEST_F(ExitCodesTest, FiveOrdinaryUserMayNotJoinOrLeave) {
    HaveDomain();
    for (const Words& words : {Words{"join", "corp.test", "-U", "administrator"}, Words{"leave"}}) {
        const ProgramResult result = CtlAsNobody(words);
        EXPECT_THAT(result, ExitsWith(5));
        ExpectExplained(result, "only root may run 'nimauthctl " + words.front() + "'\n");
        EXPECT_THAT(result.errors, HasSubstr("sudo"));
    }
}

TEST_F(ExitCodesTest, FiveFilesThatMayNotBeUsed) {
    HaveDomain();
    Done({"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "1"});
    std::filesystem::permissions("/var/lib/nimbrel", std::filesystem::perms::none);
    std::filesystem::permissions("/etc/nimbrel/nimauth", std::filesystem::perms(0555));
    for (const Words& words : {Words{"store", "set", "Active Directory"}, Words{"directory", "show"},
                               Words{"directory", "domain", "add", "b.test"},
                               Words{"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "0"},
                               Words{"option", "list"}, Words{"status"}, Words{"config", "show"}}) {
        const ProgramResult result = CtlAsNobody(words);
        EXPECT_THAT(result, ExitsWith(5)) << ::testing::PrintToString(words);
        EXPECT_THAT(result.errors, AllOf(HasSubstr("error: "), HasSubstr("\nremedy: run the tool as root")));
    }
}

TEST_F(ExitCodesTest, FiveUserWithoutTheRightInTheDirectory) {
    HaveDomain();
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "alice"});
    EXPECT_THAT(result, ExitsWith(5));
    ExpectExplained(result, "Exception 0x00000005: Access is denied.\n");
}

TEST_F(ExitCodesTest, SixStaleAnswer) {
    HaveJoined();
    Done({"directory", "rehearse", "get-active-domain", "--delay", "5m"});
    EXPECT_THAT(Ctl({"status", "--timeout", "1"}), ExitsWith(6));
}

TEST_F(ExitCodesTest, FiveSettingsThatThisUserMayNotRead) {
    std::filesystem::permissions("/etc/nimbrel/nimauth/provider.conf", std::filesystem::perms(0600));
    EXPECT_THAT(CtlAsNobody({"logins", "show"}), ExitsWith(5));
    std::filesystem::permissions("/etc/nimbrel/nimauth/provider.conf", std::filesystem::perms(0644));
}

TEST_F(ExitCodesTest, FiveSettingsThatOthersMayWrite) {
    constexpr char kSettings[] = "/etc/nimbrel/nimauth/ad.conf";
    WriteFile("/etc/nimbrel/nimauth/provider.conf", "provider = \"ad\"\n");
    WriteFile(kSettings, "");
    std::filesystem::permissions(kSettings, std::filesystem::perms(0666));
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator"});
    EXPECT_THAT(result, ExitsWith(5));
    EXPECT_THAT(result.errors,
                HasSubstr("a settings file that others may write is refused, too: see the system log and "
                          "'nimauthctl check'\n"));
    EXPECT_THAT(Ctl({"check"}).output, HasSubstr(std::string(kSettings) + " may be written by everybody"));
    std::filesystem::remove(kSettings);
}

TEST_F(ExitCodesTest, TwoNameThatNoControllerCanHave) {
    HaveJoined();
    const ProgramResult result = Ctl({"dc", "prefer", "bad name"});
    EXPECT_THAT(result, ExitsWith(2));
    ExpectExplained(result, "Exception 0x000004ba: ");
    EXPECT_THAT(result.errors, HasSubstr("\ncause: a name that was given cannot be a domain controller's\n"));
}

TEST_F(ExitCodesTest, SevenWrongPassword) {
    HaveJoined();
    const ProgramResult result = CtlWithPassword({"leave", "-U", "administrator"}, kWrongPassword);
    EXPECT_THAT(result, ExitsWith(7));
    ExpectExplained(result, "Exception 0x0000052e: The attempted logon is invalid.");
    EXPECT_THAT(Done({"status"}), HasLine("joined: yes"));
}

struct AccountCase {
    const char* flag;
    const char* text;
};

TEST_F(ExitCodesTest, SevenAccountThatMayNotLogOn) {
    constexpr AccountCase kCases[] = {{"--disabled", "Exception 0x00000533: "},
                                      {"--locked", "Exception 0x00000775: "},
                                      {"--expired", "Exception 0x00000701: "},
                                      {"--password-expired", "Exception 0x00000532: "},
                                      {"--must-change-password", "Exception 0x00000773: "}};
    HaveDomain();
    for (const AccountCase& account : kCases) {
        const std::string name = std::string("user") + account.flag;
        AddUser(name, {account.flag, "--may-join"});
        const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", name});
        EXPECT_THAT(result, ExitsWith(7)) << account.flag;
        ExpectExplained(result, account.text);
    }
}

TEST_F(ExitCodesTest, SevenEmptyPassword) {
    HaveDomain();
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator"}, "");
    EXPECT_THAT(result, ExitsWith(7));
    ExpectExplained(result, "The credentials that were provided were invalid: ");
    const ProgramResult told = CtlWithPassword({"join", "corp.test", "-U", "administrator", "--progress", "json"}, "");
    EXPECT_THAT(told, ExitsWith(7));
    EXPECT_THAT(told.errors, ::testing::Not(HasSubstr("\"event\": \"step\"")));
}

struct HostNameCase {
    const char* name;
    const char* text;
};

TEST_F(ExitCodesTest, EightHostNameThatDoesNotFit) {
    constexpr HostNameCase kCases[] = {{"nosuchhost", "The current hostname is invalid: "},
                                       {"linux", "The current hostname is invalid: hostname is in blacklist"},
                                       {"Node01", "The current hostname is invalid: shortname does not match FQDN"}};
    HaveDomain();
    WriteFile("/etc/hosts",
              "127.0.0.1 localhost\n192.0.2.10 node01.corp.test node01\n192.0.2.10 linux.corp.test linux\n");
    for (const HostNameCase& host : kCases) {
        SetHostName(host.name);
        const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator"});
        EXPECT_THAT(result, ExitsWith(8)) << host.name;
        ExpectExplained(result, host.text);
    }
    EXPECT_THAT(Done({"status"}), HasLine("joined: no"));
}

TEST_F(ExitCodesTest, EightHostNameThatCannotNameAnAccount) {
    HaveDomain();
    SetHostName("a-name-of-more-than-15");
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator", "--skip-hostname-check"});
    EXPECT_THAT(result, ExitsWith(8));
    ExpectExplained(result, "Exception 0x000004ba: ");
}

TEST_F(ExitCodesTest, NineUnknownDomain) {
    HaveDomain();
    const ProgramResult result = CtlWithPassword({"join", "nosuch.test", "-U", "administrator"});
    EXPECT_THAT(result, ExitsWith(9));
    ExpectExplained(result, "Exception 0x0000054b: ");
}

TEST_F(ExitCodesTest, NineControllerThatIsDown) {
    HaveDomain();
    Done({"directory", "controller", "set", "corp.test", "dc1.corp.test", "--reachable", "no"});
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(9));
}

TEST_F(ExitCodesTest, NineEveryNetworkFailureOfTheProvider) {
    HaveDomain();
    for (const char* const status : {"1222", "1225", "1311", "1355", "10060", "53"}) {
        Done({"directory", "rehearse", "join-domain", "--status", status});
        const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator"});
        EXPECT_THAT(result, ExitsWith(9)) << status;
        ExpectExplained(result, "Exception 0x");
    }
}

TEST_F(ExitCodesTest, OneForAStatusWithoutAnExplanation) {
    HaveDomain();
    Done({"directory", "rehearse", "join-domain", "--status", "0x1234"});
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator"});
    EXPECT_THAT(result, ExitsWith(1));
    ExpectExplained(result, "Exception 0x00001234: Unknown exception\n");
}

TEST_F(ExitCodesTest, StatusOfABrokenTrustTellsTheFailureAndTheRest) {
    HaveJoined();
    Done({"directory", "computer", "disable", "corp.test", "NODE01"});
    const ProgramResult result = Ctl({"status"});
    EXPECT_THAT(result, ExitsWith(7));
    ExpectExplained(result, "Exception 0x00000533: ");
    EXPECT_THAT(result.output, AllOf(HasLine("joined: yes"), HasLine("trusted domains: unavailable"),
                                     HasLine("trust state: 4 (the machine account is disabled)")));
}

}  // namespace
}  // namespace nimbrel::testing
