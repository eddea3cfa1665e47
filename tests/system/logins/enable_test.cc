// Directory logins on a Debian host: on, in use, off.

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "logins_host.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class LoginsEnableTest : public LoginsHost {};

TEST_F(LoginsEnableTest, DirectoryAndLocalUsersLogInAndWrongPasswordsAreRefused) {
    Enable();
    for (const char* const service : {"login", "other"}) {
        EXPECT_TRUE(LogsIn(service, "alice", kPassword)) << service;
        EXPECT_TRUE(LogsIn(service, "bob", kBobPassword)) << service;
        EXPECT_TRUE(LogsIn(service, "root", kRootPassword)) << service;
    }
    ExpectRefused({{"login", "alice", kWrongPassword},
                   {"other", "alice", ""},
                   {"login", "bob", kWrongPassword},
                   {"other", "bob", kPassword},
                   {"other", "root", kPassword},
                   {"login", "nobody-at-all", kPassword}});
    Disable();
    EXPECT_TRUE(LogsIn("login", "bob", kBobPassword));
    ExpectUntouched();
    ExpectRefused({{"login", "alice", kPassword}});
}

TEST_F(LoginsEnableTest, SecondEnableAndSecondDisableChangeNothing) {
    Enable();
    const LoginFiles enabled = ReadLoginFiles();
    EXPECT_THAT(Done({"logins", "enable"}), AllOf(HasLine("changed: no"), HasLine("files: none")));
    EXPECT_THAT(Differences(enabled, ReadLoginFiles()), IsEmpty());
    EXPECT_FALSE(std::string(Done({"logins", "history"})).find("change: 2") != std::string::npos);
    Disable();
    EXPECT_THAT(Done({"logins", "disable"}), HasLine("changed: no"));
    ExpectUntouched();
}

TEST_F(LoginsEnableTest, HostThatIsNotJoinedIsRefusedUnlessForced) {
    Done({"leave"});
    EXPECT_THAT(Refused({"logins", "enable"}, 4), HasSubstr("this host is not joined"));
    ExpectUntouched();
    Enable({"--force", "--confirm-within", "0"});
    EXPECT_TRUE(LogsIn("login", "bob", kBobPassword));
    Disable();
    ExpectUntouched();
}

TEST_F(LoginsEnableTest, DryRunShowsTheDiffOfEveryFileAndChangesNothing) {
    const std::string shown = Done({"logins", "enable", "--dry-run"});
    EXPECT_THAT(shown, AllOf(HasLine("changed: no"), HasLine("mechanism: pam-auth-update"),
                             HasLine("file: /usr/share/pam-configs/nimauth change=created"),
                             HasSubstr("\n--- /etc/pam.d/common-auth\n+++ /etc/pam.d/common-auth\n@@ "),
                             HasSubstr("\n--- /dev/null\n+++ /usr/share/pam-configs/nimauth\n"),
                             HasSubstr("-passwd:         files\n-group:          files\n"
                                       "+passwd:         files nimembedded\n+group:          files nimembedded\n")));
    ExpectUntouched();
    EXPECT_EQ(Done({"logins", "history"}), "changes: none\n");
}

// What the preview shows is what happens: the diffs, put into effect by patch(1)'s rules, are told by the files.
TEST_F(LoginsEnableTest, EveryFileThatChangesIsInThePreview) {
    const std::string shown = Done({"logins", "enable", "--dry-run"});
    Enable();
    const std::vector<std::string> changed = Differences(Before(), ReadLoginFiles());
    EXPECT_EQ(13U, changed.size());
    for (const std::string& path : changed) EXPECT_THAT(shown, HasSubstr("\n+++ " + path + "\n"));
}

TEST_F(LoginsEnableTest, FileChangedBetweenPreviewAndApplyIsRefused) {
    const std::string shown = Done({"logins", "enable", "--dry-run"});
    const std::size_t begin = shown.find("\npreview: ") + 10;
    const std::string number = shown.substr(begin, shown.find('\n', begin) - begin);
    const std::string text = ReadFile("/etc/nsswitch.conf");
    WriteFile("/etc/nsswitch.conf", "# somebody was here\n" + text);
    EXPECT_THAT(Refused({"logins", "enable", "--preview", number}, 3), HasSubstr("a file has changed since"));
    EXPECT_EQ("# somebody was here\n" + text, ReadFile("/etc/nsswitch.conf"));
    WriteFile("/etc/nsswitch.conf", text);
    Enable({"--preview", number, "--confirm-within", "0"});
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
}

TEST_F(LoginsEnableTest, NamedServicesOnly) {
    Enable({"--services", "login,chfn", "--confirm-within", "0"});
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
    EXPECT_TRUE(LogsIn("login", "bob", kBobPassword));
    EXPECT_TRUE(LogsIn("other", "bob", kBobPassword));
    EXPECT_THAT(Differences(Before(), ReadLoginFiles()),
                ::testing::UnorderedElementsAre("/etc/nsswitch.conf", "/etc/pam.d/login", "/etc/pam.d/chfn"));
    ExpectRefused({{"other", "alice", kPassword}, {"login", "alice", kWrongPassword}, {"login", "bob", kPassword}});
    Disable({"--services", "chfn", "--confirm-within", "0"});
    EXPECT_THAT(Differences(Before(), ReadLoginFiles()),
                ::testing::UnorderedElementsAre("/etc/nsswitch.conf", "/etc/pam.d/login"));
    Disable();
    ExpectUntouched();
}

TEST_F(LoginsEnableTest, WhatPamAuthUpdateMakesIsNoServiceToName) {
    for (const char* const command : {"enable", "disable"}) {
        EXPECT_THAT(Refused({"logins", command, "--services", "login,common-auth"}),
                    HasSubstr("pam-auth-update makes 'common-auth'"));
    }
    ExpectUntouched();
}

TEST_F(LoginsEnableTest, UnknownServicesAreRefused) {
    EXPECT_THAT(Refused({"logins", "enable", "--services", "bogus"}), HasSubstr("there is no PAM service 'bogus'"));
    EXPECT_THAT(Refused({"logins", "enable", "--services", "../passwd"}, 2), HasSubstr("names of PAM services"));
    ExpectUntouched();
}

// The administrator's later edits stay when the logins go.
TEST_F(LoginsEnableTest, DisableKeepsWhatOthersHaveChangedSince) {
    Enable();
    const std::string edited = ReadFile("/etc/nsswitch.conf") + "# kept\n";
    WriteFile("/etc/nsswitch.conf", edited);
    Disable();
    EXPECT_EQ(Before().at("/etc/nsswitch.conf").content + "# kept\n", ReadFile("/etc/nsswitch.conf"));
    EXPECT_THAT(Differences(Before(), ReadLoginFiles()), ::testing::ElementsAre("/etc/nsswitch.conf"));
}

TEST_F(LoginsEnableTest, EditsInTheManagedPartAreRefusedWithTheReason) {
    std::string text = ReadFile("/etc/pam.d/common-auth");
    const std::size_t line = text.find("# here's the fallback");
    WriteFile("/etc/pam.d/common-auth", text.insert(line, "auth\toptional\tpam_echo.so\n"));
    const LoginFiles edited = ReadLoginFiles();
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("pam-auth-update leaves /etc/pam.d/common-* alone"));
    EXPECT_THAT(Differences(edited, ReadLoginFiles()), IsEmpty());
}

// pam-auth-update switches a profile on that it has never seen; ours must not bring others along.
TEST_F(LoginsEnableTest, ProfilesThatNobodyHasSeenStayOff) {
    WriteFile("/usr/share/pam-configs/stranger",
              "Name: Stranger\nDefault: yes\nPriority: 10\nAuth-Type: Additional\nAuth:\n\toptional\tpam_echo.so\n");
    Enable();
    EXPECT_THAT(ReadFile("/etc/pam.d/common-auth"), AllOf(HasSubstr(kModule), Not(HasSubstr("pam_echo.so"))));
    EXPECT_THAT(ReadFile("/var/lib/pam/seen"), Not(HasSubstr("stranger")));
}

TEST_F(LoginsEnableTest, ModuleThatIsMissingOrBrokenIsRefused) {
    const std::string moved = std::string(kPamModulePath) + ".moved";
    ASSERT_EQ(0, std::rename(kPamModulePath, moved.c_str()));
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("'pam_nimauth_embedded.so' is not installed"));
    WriteFile(kPamModulePath, "no shared object");
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("cannot be loaded"));
    ASSERT_EQ(0, std::rename(moved.c_str(), kPamModulePath));
    ExpectUntouched();
}

// The first rule jumps by a number that a further rule of the managed part makes wrong.
TEST_F(LoginsEnableTest, CandidateThatWouldLockRootOutIsRefused) {
    std::string text = ReadFile("/etc/pam.d/common-auth");
    const std::string deny = "auth\trequisite\t\t\tpam_deny.so\n";
    ASSERT_NE(std::string::npos, text.find(deny));
    // A second way to fail, over which an administrator's own rule jumps.
    text.replace(text.find(deny), deny.size(), deny + deny);
    for (std::size_t at = text.find("success=1"); at != std::string::npos; at = text.find("success=1")) {
        text.replace(at, 9, "success=2");
    }
    WriteFile("/etc/pam.d/common-auth", text);
    ASSERT_TRUE(LogsIn("other", "bob", kBobPassword));
    const LoginFiles edited = ReadLoginFiles();
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("root with the right password could not log in through '"));
    EXPECT_THAT(Differences(edited, ReadLoginFiles()), IsEmpty());
}

// Four rules of common-auth are passed over while the logins are on; three are there while they are off. One more, and it
// would be the second factor.
TEST_F(LoginsEnableTest, JumpOverTheMadeRulesIsRefusedAsTheyBecomeMoreOrFewer) {
    const auto write = [](const std::string& count) {
        WriteFile("/etc/pam.d/token",
                  "auth [success=" + count +
                      " default=ignore] pam_succeed_if.so user = nobody\n@include common-auth\n"
                      "auth required pam_warn.so\nauth required pam_permit.so\n@include common-account\n");
    };
    write("3");
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("the rule in line 1 of 'token'"));
    fs::remove("/etc/pam.d/token");
    Enable();
    for (const bool exactly : {true, false}) {  // back to what was there, and computed anew
        if (!exactly) fs::remove_all("/var/lib/nimbrel/logins");
        write("4");
        const LoginFiles enabled = ReadLoginFiles();
        EXPECT_THAT(Refused({"logins", "disable"}), HasSubstr("the rule in line 1 of 'token'"));
        EXPECT_THAT(Differences(enabled, ReadLoginFiles()), IsEmpty());
    }
}

TEST_F(LoginsEnableTest, NamedServiceHasToLetRootIn) {
    WriteFile("/etc/pam.d/shut", "auth requisite pam_deny.so\n@include common-auth\n@include common-account\n");
    EXPECT_THAT(Refused({"logins", "enable", "--services", "shut"}),
                HasSubstr("root with the right password could not log in through 'shut'"));
    Enable();
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
    ExpectRefused({{"shut", "alice", kPassword}});
}

TEST_F(LoginsEnableTest, ServiceThatCannotBeOpenedIsRefused) {
    WriteFile("/etc/pam.d/lost", "@include common-auth\n@include common-account\n@include no-such-file\n");
    EXPECT_THAT(Refused({"logins", "enable", "--services", "lost"}), HasSubstr("cannot open the service 'lost'"));
    // Not named, and as broken before: no reason against the change. libpam ends whoever opens the second one.
    WriteFile("/etc/pam.d/fatal", "@include common-auth\n@include common-account\nauth SUBSTACK\n@INCLUDE\n");
    Enable();
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
}

TEST_F(LoginsEnableTest, ShowTellsTheDirectorysRulesAndSources) {
    EXPECT_THAT(Done({"logins", "show", "su"}),
                AllOf(HasSubstr("entry: su type=auth control=sufficient module=pam_rootok.so"),
                      HasSubstr("module=pam_unix.so arguments=nullok file=common-auth line="),
                      HasLine("model: su loses=\"42 comments, 3 lines (Invalid Facility: @include)\""),
                      HasLine("database: passwd sources=files directory=no"), Not(HasSubstr("directory=yes"))));
    Enable();
    EXPECT_THAT(Done({"logins", "show", "su"}),
                AllOf(HasSubstr("module=pam_nimauth_embedded.so arguments=use_first_pass file=common-auth"),
                      HasLine("database: passwd sources=\"files nimembedded\" directory=yes")));
    EXPECT_THAT(CtlAsNobody({"logins", "show"}), ExitsWith(0));
    EXPECT_THAT(CtlAsNobody({"logins", "enable"}), ExitsWith(5));
    EXPECT_THAT(Ctl({"logins", "show", "bogus"}), ExitsWith(2));
}

TEST_F(LoginsEnableTest, PreviewIsShownEvenQuietlyAndInColourOnATerminal) {
    const Words words = {"logins", "enable", "--dry-run", "--quiet"};
    EXPECT_THAT(Done(words), HasSubstr("\n--- /etc/pam.d/common-auth\n"));
    const ProgramResult terminal = Ctl(words, {.outputOnTerminal = true, .environment = {"TERM=xterm"}});
    EXPECT_THAT(terminal, ExitsWith(0));
    EXPECT_THAT(terminal.terminal, AllOf(HasSubstr("\r\n\r\n--- /etc/"), HasSubstr("\r\n\x1b[32m+"), HasSubstr("FILE "),
                                         Not(HasSubstr("diff:"))));
    ExpectUntouched();
    EXPECT_EQ("", Done({"logins", "enable", "--confirm-within", "0", "--quiet"}));
}

TEST_F(LoginsEnableTest, JsonTellsTheSame) {
    EXPECT_THAT(Done({"logins", "enable", "--dry-run", "--json"}),
                AllOf(HasSubstr("\"changed\": false"), HasSubstr("\"diff\": \"--- /etc/pam.d/common-auth\\n"),
                      HasSubstr("\"preview\": \"")));
    Enable({"--json"});
    EXPECT_THAT(Done({"logins", "history", "--json"}),
                AllOf(HasSubstr("\"state\": \"applied\""), HasSubstr("\"secondsLeft\": ")));
    EXPECT_THAT(Done({"logins", "confirm", "--json"}), HasSubstr("\"confirmed\": 1"));
    const ProgramResult result = Ctl({"logins", "confirm", "--json"});
    EXPECT_THAT(result, ExitsWith(3));
    EXPECT_THAT(result.output, HasSubstr("no change waits for a confirmation"));
}

}  // namespace
}  // namespace nimbrel::testing
