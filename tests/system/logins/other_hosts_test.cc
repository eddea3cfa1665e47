// Hosts that are no Debian: plain PAM files, and authselect (a stand-in, see authselect/README.md).

#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

#include "logins_host.h"
#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/pam_text.h"
#include "tools/loginfiles/plan.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kPamAuthUpdate[] = "/usr/sbin/pam-auth-update";

class OtherHostsTest : public LoginsHost {
 protected:
    void SetUp() override {
        LoginsHost::SetUp();
        // Nothing that could be run.
        ASSERT_EQ(0, mount("/dev/null", kPamAuthUpdate, nullptr, MS_BIND, nullptr));
    }
    void TearDown() override {
        EXPECT_EQ(0, umount2(kPamAuthUpdate, MNT_DETACH));
        LoginsHost::TearDown();
    }
};

class PlainHostTest : public OtherHostsTest {};

TEST_F(PlainHostTest, EverythingAsOnDebian) {
    EXPECT_THAT(Done({"logins", "enable", "--dry-run"}),
                AllOf(HasLine("mechanism: plain"), HasSubstr("+auth sufficient pam_nimauth_embedded.so\n")));
    ExpectUntouched();
    Enable();
    EXPECT_THAT(
        Differences(Before(), ReadLoginFiles()),
        ::testing::UnorderedElementsAre("/etc/nsswitch.conf", "/etc/pam.d/common-auth", "/etc/pam.d/common-account",
                                        "/etc/pam.d/common-password", "/etc/pam.d/common-session",
                                        "/etc/pam.d/common-session-noninteractive", "/etc/pam.d/runuser"));
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
    EXPECT_TRUE(LogsIn("login", "bob", kBobPassword));
    EXPECT_TRUE(LogsIn("login", "root", kRootPassword));
    ExpectRefused({{"login", "alice", kWrongPassword}, {"login", "bob", kPassword}, {"other", "root", kPassword}});
    EXPECT_THAT(Done({"logins", "enable"}), HasLine("changed: no"));
    Disable();
    ExpectUntouched();
}

// Without the journal's help, by taking out the provider's lines alone.
TEST_F(PlainHostTest, LinesAloneGiveTheSameBytesBack) {
    Enable();
    fs::remove_all("/var/lib/nimbrel/logins");
    Disable();
    ExpectUntouched();
}

// What an editor or a package manager has left is nobody's service, and odd lines in it are nobody's business.
TEST_F(PlainHostTest, BackupCopiesStayWhatTheyAre) {
    const std::string text = ReadFile("/etc/pam.d/common-auth");
    for (const char* const ending : {".bak", ".rpmsave", ".dpkg-old", ".pam-old"}) {
        WriteFile(std::string("/etc/pam.d/common-auth") + ending, text + "an odd line\n");
    }
    const LoginFiles before = ReadLoginFiles();
    Enable();
    for (const std::string& path : Differences(before, ReadLoginFiles())) {
        EXPECT_EQ(std::string::npos, path.find("common-auth.")) << path;
    }
    fs::copy("/etc/pam.d/common-auth", "/etc/pam.d/common-auth.orig");
    WriteFile("/etc/nsswitch.conf", ReadFile("/etc/nsswitch.conf") + "# kept\n");
    EXPECT_THAT(Done({"logins", "disable", "--confirm-within", "0"}), ::testing::Not(HasSubstr("other services")));
    EXPECT_THAT(ReadFile("/etc/nsswitch.conf"), ::testing::Not(HasSubstr("nimembedded")));
}

TEST_F(PlainHostTest, FilesThatComeAndGoAreSeenByTheTrial) {
    const auto state = [](const std::string& content, logins::FileState::Kind kind) {
        logins::FileState after = logins::FileState().With(content);
        after.kind = kind;
        return after;
    };
    using Kind = logins::FileState::Kind;
    for (const char* const folder : {"/usr/lib/pam.d", "/usr/etc/pam.d"}) fs::create_directories(folder);
    WriteFile("/usr/lib/pam.d/login", "vendor's\n");
    WriteFile("/usr/etc/pam.d/passwd", "SUSE's\n");
    const logins::PamFiles files = logins::FilesAfter({{"/etc/pam.d/new", {}, state("new\n", Kind::Regular)},
                                                       {"/etc/pam.d/new.bak", {}, state("old\n", Kind::Regular)},
                                                       {"/etc/pam.d/login", {}, {}},
                                                       {"/etc/pam.d/passwd", {}, {}},
                                                       {"/etc/pam.d/su", {}, {}},
                                                       {"/etc/pam.d/link", {}, state("../../srv/made", Kind::Symlink)},
                                                       {"/etc/pam.d/lost", {}, state("nowhere", Kind::Symlink)},
                                                       {"/etc/pam.d/loop", {}, state("loop", Kind::Symlink)},
                                                       {"/srv/made", {}, state("made\n", Kind::Regular)}});
    logins::PamFiles expected = logins::ReadPamFiles();
    expected["new"] = "new\n";
    expected["login"] = "vendor's\n";
    expected["passwd"] = "SUSE's\n";
    expected["link"] = "made\n";
    expected.erase("su");
    EXPECT_EQ(expected, files);
    fs::remove("/usr/lib/pam.d/login");
    fs::remove_all("/usr/etc/pam.d");
}

// A service that has the module by an include needs no file of its own.
TEST_F(PlainHostTest, FileOfAVendorIsNotCopiedForNothing) {
    fs::create_directories("/usr/lib/pam.d");
    WriteFile("/usr/lib/pam.d/vendors",
              "@include common-auth\n@include common-account\n@include common-session\n"
              "@include common-password\n");
    Enable();
    EXPECT_THAT(Done({"logins", "enable", "--services", "vendors"}), HasLine("changed: no"));
    EXPECT_FALSE(fs::exists("/etc/pam.d/vendors"));
    fs::remove("/usr/lib/pam.d/vendors");
}

// Our copy hides the vendor's file while the logins are on; what has become of that meanwhile is the vendor's.
TEST_F(PlainHostTest, CopyOfAVendorsFileGivesWayToWhatTheVendorHasByThen) {
    const std::string vendors = "/usr/lib/pam.d/vendors";
    const std::string rest = "@include common-account\n@include common-session\n";
    const std::string text = "auth required pam_unix.so\n" + rest;
    fs::create_directories("/usr/lib/pam.d");
    for (const std::string& update :
         {"auth requisite pam_nologin.so\nauth [success=1 default=ignore] pam_unix.so\nauth requisite pam_deny.so\n"
          "auth required pam_permit.so\n" +
              rest,
          text, std::string()}) {
        WriteFile(vendors, text);
        Enable();
        EXPECT_THAT(ReadFile("/etc/pam.d/vendors"), HasSubstr(kModule));
        WriteFile(vendors, update);
        if (update.empty()) fs::remove(vendors);
        Disable();
        EXPECT_FALSE(fs::exists("/etc/pam.d/vendors"));
        ExpectUntouched();
    }
    fs::remove(vendors);
}

// That is not known to be a copy where the way back is not exact.
TEST_F(PlainHostTest, CopyThatGoesOnHidingAVendorsFileIsTold) {
    fs::create_directories("/usr/lib/pam.d");
    WriteFile("/usr/lib/pam.d/vendors", "auth required pam_unix.so\n@include common-account\n");
    Enable();
    fs::remove_all("/var/lib/nimbrel/logins");
    EXPECT_THAT(
        Done({"logins", "disable", "--confirm-within", "0"}),
        HasSubstr("'/etc/pam.d/vendors' goes on hiding the vendor's '/usr/lib/pam.d/vendors': remove it unless"));
    EXPECT_EQ(ReadFile("/usr/lib/pam.d/vendors"), ReadFile("/etc/pam.d/vendors"));
    fs::remove("/etc/pam.d/vendors");
    fs::remove("/usr/lib/pam.d/vendors");
    ExpectUntouched();
}

// A service that is still there would not find what it includes: then the lines alone go.
TEST_F(PlainHostTest, CopyOfAVendorsFileStaysWhereAServiceStillIncludesIt) {
    const std::string vendors = "/usr/lib/pam.d/vendors";
    const std::string text = "auth required pam_unix.so\n";
    fs::create_directories("/usr/lib/pam.d");
    WriteFile(vendors, text);
    WriteFile("/etc/pam.d/taker", "auth include vendors\n@include common-account\n");
    Enable();
    fs::remove(vendors);
    Disable();
    EXPECT_EQ(text, ReadFile("/etc/pam.d/vendors"));
    fs::remove("/etc/pam.d/vendors");
    fs::remove("/etc/pam.d/taker");
    ExpectUntouched();
}

// As a unit is masked.
TEST_F(PlainHostTest, LinkToNothingIsNoHindrance) {
    fs::create_symlink("/dev/null", "/etc/pam.d/masked");
    fs::create_directories("/usr/lib/pam.d");
    WriteFile("/usr/lib/pam.d/masked", "auth required pam_unix.so\n");
    EXPECT_FALSE(logins::ReadPamFiles().contains("masked"));
    const std::vector<std::string> onlyThere = {"logins", "enable", "--services", "masked"};
    EXPECT_THAT(Refused(onlyThere), HasSubstr("there is no PAM service 'masked'"));
    WriteFile("/etc/pam.d/door", "@include masked\n@include common-auth\n@include common-account\n");
    EXPECT_THAT(Refused(onlyThere), HasSubstr("there is no PAM service 'masked'"));
    EXPECT_EQ("", logins::ReadPamFiles().at("masked")) << "what others include";
    EXPECT_EQ(logins::ReadPamFiles(), logins::FilesAfter({}));
    Enable();
    EXPECT_THAT(Done({"logins", "enable"}), HasLine("changed: no"));
    fs::remove_all("/var/lib/nimbrel/logins");  // so that the lines alone go
    Disable();
    EXPECT_TRUE(fs::is_symlink("/etc/pam.d/masked"));
    fs::remove("/etc/pam.d/door");
    fs::remove("/usr/lib/pam.d/masked");
    fs::remove("/etc/pam.d/masked");
}

// With a certificate they pass over the common rules, and end in front of the second factor.
TEST_F(PlainHostTest, JumpOfAnAdministratorsRuleOfTheModuleIsProvenToo) {
    const std::string text = ReadFile("/etc/pam.d/common-auth");
    std::size_t rules = 0;
    for (const logins::PamLine& line : logins::ParsePam(text)) rules += line.type == "auth" ? 1 : 0;
    WriteFile("/etc/pam.d/door", "auth [success=" + std::to_string(rules) + " default=ignore] " + kModule +
                                     " require_cert_auth\n@include common-auth\nauth required pam_warn.so\n"
                                     "@include common-account\n");
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("the rule in line 1 of 'door'"));
    fs::remove("/etc/pam.d/door");
    ExpectUntouched();
}

// A stack with jumps, as another distribution has it.
TEST_F(PlainHostTest, StackWithJumpsOfAnotherDistribution) {
    WriteFile("/etc/pam.d/system-auth", ReadFile(NIMAUTH_LOGIN_FILES "/pam/arch_system-auth"));
    WriteFile("/etc/pam.d/archlogin",
              "auth requisite pam_nologin.so\nauth include system-auth\naccount include system-auth\n"
              "session include system-auth\n");
    const LoginFiles before = ReadLoginFiles();
    Enable();
    EXPECT_TRUE(LogsIn("archlogin", "alice", kPassword));
    EXPECT_TRUE(LogsIn("archlogin", "bob", kBobPassword));
    ExpectRefused({{"archlogin", "alice", kWrongPassword}, {"archlogin", "bob", kPassword}});
    Disable();
    EXPECT_THAT(Differences(before, ReadLoginFiles()), IsEmpty());
}

// The module had been in the files for long, and a jump passes over it; the next rule is the one that denies.
TEST_F(PlainHostTest, DenialBehindTheModuleStaysWhenTheModuleGoes) {
    std::string text = ReadFile(NIMAUTH_LOGIN_FILES "/pam/fedora_system-auth");
    for (std::size_t at = text.find("pam_sss.so"); at != std::string::npos; at = text.find("pam_sss.so")) {
        text.replace(at, 10, kModule);
    }
    for (const char* const absent : {"pam_fprintd.so", "pam_pwquality.so local_users_only"}) {
        text.replace(text.find(absent), std::string(absent).size(), "pam_warn.so");
    }
    WriteFile("/etc/pam.d/password-auth", text);
    WriteFile("/etc/pam.d/ftp",
              "auth required pam_succeed_if.so user != nobody\nauth include password-auth\n"
              "account include password-auth\n");
    ExpectRefused({{"ftp", "root", kPassword}});
    Disable();
    EXPECT_THAT(ReadFile("/etc/pam.d/password-auth"),
                AllOf(HasSubstr("[default=ignore ignore=ignore success=ok]"), ::testing::Not(HasSubstr(kModule))));
    EXPECT_TRUE(LogsIn("ftp", "root", kRootPassword));
    EXPECT_TRUE(LogsIn("ftp", "bob", kBobPassword));
    ExpectRefused({{"ftp", "root", kPassword}, {"ftp", "bob", kPassword}});
}

// Real modules would count failures and lock accounts.
TEST_F(PlainHostTest, RulesThatAreIncludedByTheirPathAreTriedOnTheCopyToo) {
    WriteFile("/tmp/ran", "#!/bin/sh\necho ran >>/tmp/ran.log\n");
    ASSERT_EQ(0, chmod("/tmp/ran", 0755));
    WriteFile("/srv/rules", "auth optional pam_exec.so quiet /tmp/ran\nauth required pam_unix.so\n");
    WriteFile("/etc/pam.d/door", "auth include /srv/rules\n@include /etc/pam.d/common-account\n");
    Enable();
    EXPECT_FALSE(LogsIn("door", "alice", kPassword)) << "a file that is included by its path is not edited";
    fs::remove("/tmp/ran.log");
    Enable({"--services", "door", "--confirm-within", "0"});
    EXPECT_FALSE(fs::exists("/tmp/ran.log"));
    EXPECT_THAT(ReadFile("/etc/pam.d/door"), HasSubstr("auth sufficient pam_nimauth_embedded.so\nauth include /srv/"));
    EXPECT_TRUE(LogsIn("door", "alice", kPassword));
    EXPECT_TRUE(LogsIn("door", "bob", kBobPassword));
    EXPECT_TRUE(fs::exists("/tmp/ran.log"));
    EXPECT_THAT(Done({"logins", "show"}), ::testing::Not(HasSubstr("entry: /srv/rules")));
}

// All that refused a wrong password was the module itself.
TEST_F(PlainHostTest, ServiceThatWouldAcceptAnyPasswordIsRefused) {
    const std::string module = std::string(kModule) + '\n';
    const std::string condition = "auth required pam_succeed_if.so user != nobody\nauth requisite ";
    const std::string program =
        "auth optional pam_exec.so quiet /bin/true\nauth sufficient pam_unix.so nullok\nauth required ";
    for (const std::string& rules : {condition, program}) {
        WriteFile("/etc/pam.d/club", rules + module + "account required pam_unix.so\n");
        const LoginFiles before = ReadLoginFiles();
        ExpectRefused({{"club", "bob", kPassword}});
        EXPECT_THAT(Refused({"logins", "disable"}), HasSubstr("root with a wrong password would be let in by 'club'"));
        EXPECT_THAT(Differences(before, ReadLoginFiles()), IsEmpty());
    }
}

TEST_F(PlainHostTest, JumpOfAnotherFileIntoTheChangedOneIsRefused) {
    WriteFile("/etc/pam.d/jumper",
              "auth [success=2 default=ignore] pam_succeed_if.so user = nobody\nauth include chpasswd\n");
    WriteFile("/etc/pam.d/chpasswd", "auth requisite pam_nologin.so\nauth required pam_unix.so\n");
    const LoginFiles before = ReadLoginFiles();
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("the rule in line 1 of 'jumper'"));
    EXPECT_THAT(Differences(before, ReadLoginFiles()), IsEmpty());
}

class AuthselectHostTest : public OtherHostsTest {
 protected:
    void SetUp() override {
        OtherHostsTest::SetUp();
        fs::create_directories("/srv/authselect");
        fs::create_directories("/etc/authselect");
        fs::copy(NIMAUTH_AUTHSELECT "/default", "/srv/authselect/default",
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        fs::copy(NIMAUTH_AUTHSELECT "/authselect", kAuthselect, fs::copy_options::overwrite_existing);
        ASSERT_EQ(0, chmod(kAuthselect, 0755));
        ASSERT_EQ(0, RunProgram(kAuthselect, {.arguments = {"select", "minimal", "with-delay"}}).exitStatus);
        WriteFile("/etc/pam.d/rhlogin",
                  "auth include system-auth\naccount include system-auth\nsession include system-auth\n");
        _selected = ReadLoginFiles();
    }
    void TearDown() override {
        fs::remove_all("/etc/authselect");
        fs::remove(kAuthselect);
        OtherHostsTest::TearDown();
    }
    static std::string Current() { return RunProgram(kAuthselect, {.arguments = {"current", "--raw"}}).output; }

    static constexpr char kAuthselect[] = "/usr/bin/authselect";
    LoginFiles _selected;
};

TEST_F(AuthselectHostTest, ProfileOfItsOwnIsMadeSelectedAndLeft) {
    EXPECT_THAT(Done({"logins", "enable", "--dry-run"}),
                AllOf(HasLine("mechanism: authselect"), HasSubstr("+custom/nimauth\n with-delay\n"),
                      HasLine("file: /etc/authselect/custom/nimauth/system-auth change=created")));
    EXPECT_THAT(Differences(_selected, ReadLoginFiles()), IsEmpty());
    Enable();
    EXPECT_EQ("custom/nimauth with-delay\n", Current());
    EXPECT_EQ("/etc/authselect/system-auth", fs::read_symlink("/etc/pam.d/system-auth"));
    EXPECT_TRUE(LogsIn("rhlogin", "alice", kPassword));
    EXPECT_TRUE(LogsIn("rhlogin", "bob", kBobPassword));
    EXPECT_TRUE(LogsIn("rhlogin", "root", kRootPassword));
    ExpectRefused({{"rhlogin", "alice", kWrongPassword}, {"rhlogin", "bob", kPassword}});
    EXPECT_THAT(Done({"logins", "enable"}), HasLine("changed: no"));
    Disable();
    EXPECT_EQ("minimal with-delay\n", Current());
    EXPECT_THAT(Differences(_selected, ReadLoginFiles()), IsEmpty());
}

TEST_F(AuthselectHostTest, JumpOverTheMadeRulesIsRefused) {
    const std::string made = ReadFile("/etc/pam.d/system-auth");
    std::size_t rules = 0;
    for (const logins::PamLine& line : logins::ParsePam(made)) rules += line.type == "auth" ? 1 : 0;
    WriteFile("/etc/pam.d/token", "auth [success=" + std::to_string(rules) +
                                      " default=ignore] pam_succeed_if.so user = nobody\nauth include system-auth\n"
                                      "auth required pam_warn.so\naccount include system-auth\n");
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("the rule in line 1 of 'token'"));
    fs::remove("/etc/pam.d/token");
    EXPECT_THAT(Differences(_selected, ReadLoginFiles()), IsEmpty());
}

TEST_F(AuthselectHostTest, EarlierProfileIsSelectedWhenSomebodyHasChangedFiles) {
    Enable();
    ASSERT_EQ(0, RunProgram(kAuthselect, {.arguments = {"select", "custom/nimauth"}}).exitStatus);
    Disable();
    EXPECT_EQ("minimal with-delay\n", Current());
    ExpectRefused({{"rhlogin", "alice", kPassword}});
}

TEST_F(AuthselectHostTest, SingleServicesAreRefused) {
    EXPECT_THAT(Refused({"logins", "enable", "--services", "rhlogin"}), HasSubstr("all its services together"));
    EXPECT_THAT(Differences(_selected, ReadLoginFiles()), IsEmpty());
    Enable();
    const LoginFiles enabled = ReadLoginFiles();
    EXPECT_THAT(Refused({"logins", "disable", "--services", "rhlogin"}), HasSubstr("all its services together"));
    EXPECT_THAT(Differences(enabled, ReadLoginFiles()), IsEmpty());
}

TEST_F(AuthselectHostTest, OnOffAndOnAgain) {
    Enable();
    Disable();
    Enable();
    EXPECT_EQ("custom/nimauth with-delay\n", Current());
    EXPECT_TRUE(LogsIn("rhlogin", "alice", kPassword));
    Disable();
    EXPECT_THAT(Differences(_selected, ReadLoginFiles()), IsEmpty());
}

TEST_F(AuthselectHostTest, ProfileFollowsTheProviderAndItsBase) {
    Enable();
    const auto planned = [](const logins::ProviderModules& provider, const std::string& path) {
        logins::Journal journal;
        journal.Lock();
        std::string content;
        for (const logins::Change& change : logins::PlanEnable(journal, provider, {}).changes) {
            if (change.path == path) content = change.after.content;
        }
        return content;
    };
    const char* const made = "/etc/authselect/system-auth";
    EXPECT_THAT(planned({"pam_other.so", {}, "other", {}}, made),
                AllOf(HasSubstr("pam_other.so"), ::testing::Not(HasSubstr(kModule))));
    EXPECT_EQ("", planned({kModule, {}, "nimembedded", {}}, made)) << "nothing has changed";
    const std::string base = "/srv/authselect/default/minimal/system-auth";
    WriteFile(base, ReadFile(base) + "session optional pam_echo.so\n");
    EXPECT_THAT(planned({kModule, {}, "nimembedded", {}}, made),
                AllOf(HasSubstr(kModule), HasSubstr("session optional pam_echo.so\n")));
    // Selected by hand, from another one.
    ASSERT_EQ(0, RunProgram(kAuthselect, {.arguments = {"select", "sssd"}}).exitStatus);
    EXPECT_EQ("sssd\n", planned({kModule, {}, "nimembedded", {}}, "/etc/authselect/custom/nimauth/made-from"));
    ASSERT_EQ(0, RunProgram(kAuthselect, {.arguments = {"select", "custom/nimauth"}}).exitStatus);
}

// It was made by an earlier version, or authselect has renamed the base since.
TEST_F(AuthselectHostTest, ProfileWithoutItsBaseStaysAsLongAsItHasTheModules) {
    Enable();
    const std::string base = "/srv/authselect/default/minimal";
    const std::string from = "/etc/authselect/custom/nimauth/made-from";
    const std::string profile = "/etc/authselect/custom/nimauth/system-auth";
    const std::string templates = ReadFile(profile);
    for (const bool known : {true, false}) {
        WriteFile(profile, templates);
        known ? fs::rename(base, base + ".gone") : static_cast<void>(fs::remove(from));
        EXPECT_THAT(Done({"logins", "enable"}), HasLine("changed: no"));
        for (const char* const name : {"system-auth", "password-auth"}) {
            WriteFile("/etc/authselect/custom/nimauth/" + std::string(name), "auth required pam_unix.so\n");
        }
        EXPECT_THAT(Refused({"logins", "enable"}),
                    AllOf(HasSubstr(known ? "the profile 'minimal', from which custom/nimauth was made, is not there"
                                          : "made-from does not say what the profile was made from\n"),
                          HasSubstr("\nremedy: choose another profile to begin with: 'authselect list'")));
        if (known) fs::rename(base + ".gone", base);
    }
}

TEST_F(AuthselectHostTest, WhatAuthselectRefusesIsTold) {
    WriteFile(kAuthselect, "#!/bin/sh\n[ \"$1\" = current ] && exec echo minimal\necho '[error] no, thanks'\nexit 4\n");
    EXPECT_THAT(Refused({"logins", "enable"}),
                AllOf(HasSubstr("[error] no, thanks\n"), HasSubstr("remedy: run 'authselect check'")));
    EXPECT_THAT(Differences(_selected, ReadLoginFiles()), IsEmpty());
}

// A sixth file that only one of the profiles fills, files that lead to the made ones, and one that is included by path.
TEST_F(AuthselectHostTest, WhateverAuthselectMakesMayDifferInAnything) {
    const std::string name = "switchable-auth";
    EXPECT_EQ(std::string::npos, ReadFile("/etc/pam.d/" + name).find("pam_"));
    fs::create_symlink("system-auth", "/etc/pam.d/system-auth-local");
    WriteFile("/etc/pam.d/door", "auth include " + name + "\naccount include system-auth-local\n");
    WriteFile("/etc/pam.d/gate", "auth include system-auth-local\naccount include /etc/authselect/password-auth\n");
    logins::Journal journal;
    journal.Lock();
    const logins::PamFiles after =
        logins::FilesAfter(logins::PlanEnable(journal, {"pam_sss.so", {}, "sss", {}}, {}).changes);
    EXPECT_THAT(after.at(name), HasSubstr("pam_sss.so"));
    EXPECT_EQ(after.at("system-auth"), after.at("system-auth-local"));
    EXPECT_EQ(after.at("password-auth"), after.at("/etc/authselect/password-auth"));
    for (const char* const file : {"system-auth-local", "door", "gate"}) {
        fs::remove(std::string("/etc/pam.d/") + file);
    }
}

TEST_F(AuthselectHostTest, SssdHasAProfileAlready) {
    logins::Journal journal;
    journal.Lock();
    const logins::Plan plan = logins::PlanEnable(journal, {"pam_sss.so", {}, "sss", {}}, {});
    std::string configuration;
    for (const logins::Change& change : plan.changes) {
        if (change.path == "/etc/authselect/authselect.conf") configuration = change.after.content;
        EXPECT_EQ(std::string::npos, change.path.find("custom")) << change.path;
    }
    EXPECT_EQ("sssd\nwith-delay\n", configuration);
    EXPECT_EQ("minimal with-delay\n", Current());
}

}  // namespace
}  // namespace nimbrel::testing
