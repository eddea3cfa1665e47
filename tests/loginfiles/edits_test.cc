#include "tools/loginfiles/edits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/temporary_folder.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/pam_jumps.h"

namespace nimbrel::logins {
namespace {

using ::testing::HasSubstr;

const ProviderModules kProvider = {"pam_x.so", {"quiet", "domain=corp.test"}, "x", {}};

// --- nsswitch.conf ---

struct NssRow {
    const char* before;
    const char* after;
};

constexpr NssRow kNssRows[] = {
    {"passwd: files\ngroup: files\n", "passwd: files x\ngroup: files x\n"},
    {"passwd:\tfiles systemd  # why\ngroup:   files [SUCCESS=merge] systemd\n",
     "passwd:\tfiles systemd x  # why\ngroup:   files [SUCCESS=merge] systemd x\n"},
    {"# c\n\nsudoers: files\ngroup: files\npasswd: compat\n",
     "# c\n\nsudoers: files\ngroup: files x\npasswd: compat x\n"},
    {"passwd: files\ngroup: files\ninitgroups: files [SUCCESS=continue] db\n",
     "passwd: files x\ngroup: files x\ninitgroups: files [SUCCESS=continue] db x\n"},
    {"passwd: files x\ngroup: x\n", "passwd: files x\ngroup: x\n"},
    {"hosts: files dns\n", "hosts: files dns\npasswd: files x\ngroup: files x\n"},
    {"passwd: files\ngroup: files", "passwd: files x\ngroup: files x"},
    {"", "passwd: files x\ngroup: files x\n"},
};

TEST(NssEditTest, ServiceComesLastAndNothingElseChanges) {
    for (const NssRow& row : kNssRows) EXPECT_EQ(row.after, WithNssService(row.before, kProvider)) << row.before;
}

TEST(NssEditTest, SecondEditChangesNothing) {
    for (const NssRow& row : kNssRows) EXPECT_EQ(row.after, WithNssService(row.after, kProvider));
}

TEST(NssEditTest, CriteriaOfTheProviderComeAndGoWithIt) {
    const ProviderModules provider = {"", {}, "x", {"NOTFOUND=return", "!UNAVAIL=continue"}};
    const std::string text = "passwd: files\ngroup: files # end\n";
    const std::string edited = WithNssService(text, provider);
    EXPECT_EQ(
        "passwd: files x [NOTFOUND=return !UNAVAIL=continue]\n"
        "group: files x [NOTFOUND=return !UNAVAIL=continue] # end\n",
        edited);
    EXPECT_EQ(text, WithoutNssService(edited, provider));
    try {
        WithNssService(text, {"", {}, "x", {"word"}});
        ADD_FAILURE() << "not refused";
    } catch (const LoginsError& error) {
        EXPECT_EQ(LoginsError::Kind::Refused, error.Reason());
        EXPECT_STREQ("the provider's name-service parameter 'word' is no criterion", error.what());
    }
}

TEST(NssEditTest, OnlyTheServicesOwnCriteriaGoWithIt) {
    EXPECT_EQ("passwd: files [NOTFOUND=return] y [SUCCESS=merge]\n",
              WithoutNssService("passwd: files [NOTFOUND=return] x [UNAVAIL=return] y [SUCCESS=merge]\n", kProvider));
    const std::string text = "passwd:   files xy  yx # x\n# x\n";
    EXPECT_EQ(text, WithoutNssService(text, kProvider)) << "nothing to remove";
    EXPECT_EQ("passwd: files\nhosts: files\ngroup: files\n",
              WithoutNssService("passwd: x files x\nhosts: files\ngroup: files x\n", kProvider));
}

TEST(NssEditTest, ServiceIsThereUnderItsWholeName) {
    EXPECT_TRUE(HasNssService("hosts: files x\n", "x"));
    for (const char* const text : {"", "hosts: files xx\n", "# passwd: x\n", "passwd: files [NOTFOUND=return]\n"}) {
        EXPECT_FALSE(HasNssService(text, "x")) << text;
    }
}

TEST(NssEditTest, TemplatesGetTheServiceInFrontOfConditions) {
    const struct {
        const char* before;
        const char* after;
    } rows[] = {
        {"passwd: files\n", "passwd: files x\n"},
        {"group:\tfiles \t \n", "group:\tfiles x \t \n"},
        {"passwd: files {exclude if \"a\"} {include if \"b\"}",
         "passwd: files x {exclude if \"a\"} {include if \"b\"}\n"},
        {"passwd: files\t{include if \"b\"} {exclude if \"a\"}\n",
         "passwd: files x\t{include if \"b\"} {exclude if \"a\"}\n"},
        {"hosts: files\n passwd: files\npasswd\n", "hosts: files\n passwd: files\npasswd\n"},
        {"passwd: files\tx\ngroup: x {exclude if \"a\"}\n", "passwd: files\tx\ngroup: x {exclude if \"a\"}\n"},
        {"passwd: xx\n", "passwd: xx x\n"},
        {"passwd:", "passwd: x\n"},
        {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(row.after, WithNssServiceInTemplate(row.before, kProvider)) << row.before;
}

TEST(NssEditTest, RemovalTakesTheServiceOnly) {
    EXPECT_EQ(
        "passwd: files [NOTFOUND=return] y\ngroup:files\ninitgroups: files\n",
        WithoutNssService("passwd: files [NOTFOUND=return] x y\ngroup:x files\ninitgroups: files x\n", kProvider));
}

TEST(NssEditTest, DatabasesThatEnablingLeavesAloneKeepTheService) {
    const std::string others = "shadow: files x\nnetgroup: x\nsudoers: files x\nautomount: x\n";
    EXPECT_EQ("passwd: files\n" + others, WithoutNssService("passwd: files x\n" + others, kProvider));
    EXPECT_EQ(others, WithoutNssService(others, kProvider));
}

TEST(NssEditTest, OnlySourceOfADatabaseIsNotTakenAway) {
    for (const char* const text :
         {"passwd: files x\ngroup: x\n", "group: x [NOTFOUND=return]", "group: [SUCCESS=merge] x\n"}) {
        try {
            WithoutNssService(text, kProvider);
            ADD_FAILURE() << "not refused: " << text;
        } catch (const LoginsError& error) {
            EXPECT_EQ(LoginsError::Kind::Refused, error.Reason());
            EXPECT_STREQ("the database 'group' has no other source than 'x'", error.what());
            EXPECT_EQ("name the source that it shall have then in front of it, as 'files'", error.Remedy());
        }
    }
}

// Names that hold the service's, and odd places for blanks.
TEST(NssEditTest, NeighboursOfTheServiceStay) {
    const ProviderModules provider = {"", {}, "s", {}};
    const std::string text = "passwd:files sss # s\ngroup:  s2\t ss\nhosts: dns\nservices: s";
    const std::string edited = WithNssService(text, provider);
    EXPECT_EQ("passwd:files sss s # s\ngroup:  s2\t ss s\nhosts: dns\nservices: s", edited);
    EXPECT_EQ(text, WithoutNssService(edited, provider));
}

TEST(NssEditTest, FilesOfRealSystemsSurviveOnAndOff) {
    int edited = 0;
    for (const auto& item : std::filesystem::directory_iterator(NIMAUTH_LOGIN_FILES "/nss")) {
        const std::string text = ReadFile(item.path());
        std::string on;
        try {
            on = WithNssService(text, kProvider);
        } catch (const LoginsError&) {
            EXPECT_TRUE(item.path().filename().string().starts_with("edited_")) << item.path();
            continue;
        }
        EXPECT_TRUE(HasNssService(on, "x")) << item.path();
        EXPECT_EQ(text, WithoutNssService(on, kProvider)) << item.path();
        ++edited;
    }
    EXPECT_GT(edited, 5);
}

TEST(NssEditTest, LinesThatCannotBeReadAreRefusedWithTheirNumber) {
    for (const char* const line : {"= nonsense\n", "group:\n", "group: # files\n"}) {
        try {
            ADD_FAILURE() << "not refused: " << WithNssService(std::string("passwd: files\n") + line, kProvider);
        } catch (const LoginsError& error) {
            EXPECT_EQ(LoginsError::Kind::Refused, error.Reason());
            EXPECT_THAT(error.what(), HasSubstr("line 2"));
        }
    }
}

TEST(NssEditTest, CharactersThatLibaugeasKeepsForItselfAreRefused) {
    for (const char c : {'\0', '\1', '\2', '\3', '\4'}) {
        const std::string text = std::string("passwd: files # ") + c + " \ngroup: files\n";
        EXPECT_THROW(WithNssService(text, kProvider), LoginsError) << int{c};
        EXPECT_THROW(WithNssService("passwd: files\n", {"pam_x.so", {}, std::string("x") + c, {}}), LoginsError)
            << int{c};
    }
}

// --- PAM files ---

TEST(PamEditTest, CharactersThatLibaugeasKeepsForItselfAreRefused) {
    const PamFiles files = {{"a", "auth sufficient\4\4 x\4pam_unix.so\nsession required pam_unix.so\n"}};
    EXPECT_THROW(WithPamModule(files, "a", kProvider), LoginsError);
}

std::string With(const std::string& text) { return WithPamModule({{"login", text}}, "login", kProvider); }

std::string Without(const std::string& text) { return WithoutPamModule({{"login", text}}, "login", "pam_x.so"); }

constexpr char kAuthRules[] =
    "auth [success=1 default=ignore] pam_localuser.so\nauth sufficient pam_x.so quiet domain=corp.test\n";

TEST(PamEditTest, RulesStandBeforePamUnix) {
    EXPECT_EQ(std::string("#%PAM-1.0\nauth required pam_env.so\n") + kAuthRules + "auth required pam_unix.so # last\n",
              With("#%PAM-1.0\nauth required pam_env.so\nauth required pam_unix.so # last\n"));
}

TEST(PamEditTest, EveryTypeGetsItsRules) {
    const std::string text = With(
        "auth required pam_unix.so\naccount required pam_unix.so\npassword required pam_unix.so\n"
        "session required pam_unix.so\n");
    EXPECT_THAT(text,
                HasSubstr("account [success=ok new_authtok_reqd=ok user_unknown=ignore default=bad] pam_x.so quiet"));
    EXPECT_THAT(text, HasSubstr("password sufficient pam_x.so quiet domain=corp.test\npassword required pam_unix.so"));
    EXPECT_THAT(text, HasSubstr("session optional pam_x.so quiet domain=corp.test\nsession required pam_unix.so"));
}

// The rule that a jump ends at moves away when a line is put in between.
TEST(PamEditTest, RulesStandBeforeWhateverJumpsOverTheirPlace) {
    const std::string jumping =
        "auth [default=1 success=ok] pam_usertype.so isregular\nauth [default=1 success=ok] pam_localuser.so\n"
        "auth sufficient pam_unix.so\nauth required pam_deny.so\n";
    EXPECT_EQ("auth required pam_env.so\n" + std::string(kAuthRules) + jumping,
              With("auth required pam_env.so\n" + jumping));
    const std::string near = "auth [success=1 default=ignore] a.so\nauth required b.so\n";
    EXPECT_EQ(near + kAuthRules + "auth required pam_unix.so\n", With(near + "auth required pam_unix.so\n"));
}

TEST(PamEditTest, RulesStandBeforeAnIncludeThatLeadsToPamUnix) {
    const PamFiles files = {{"common-auth", "auth required pam_unix.so\n"},
                            {"nologin", "account required pam_nologin.so\n"},
                            {"login", "@include nologin\n@include common-auth\n"}};
    EXPECT_EQ(std::string("@include nologin\n") + kAuthRules + "@include common-auth\n",
              WithPamModule(files, "login", kProvider));
}

TEST(PamEditTest, FilesWithoutPamUnixStayAsTheyAre) {
    const std::string text = "auth required pam_deny.so\n";
    EXPECT_EQ(text, With(text));
}

// A change to one of these is a change to others.
std::set<std::string> IncludedFiles(const PamFiles& files) {
    std::set<std::string> included;
    for (const auto& [name, text] : files) {
        for (const PamLine& line : ParsePam(text)) {
            const std::string other = line.IncludesAnother() ? IncludedName(line.module) : "";
            if (files.contains(other)) included.insert(other);
        }
    }
    return included;
}

TEST(PamEditTest, FilesOfRealSystemsSurviveOnAndOff) {
    PamFiles files;
    for (const auto& item : std::filesystem::directory_iterator(NIMAUTH_LOGIN_FILES "/pam")) {
        files[item.path().filename()] = ReadFile(item.path());
    }
    // Names as the systems' own includes use them.
    for (const char* const name : {"common-auth", "common-account", "common-password", "common-session"}) {
        files[name] = files.at(std::string("debian_generated_") + name);
    }
    const std::set<std::string> shared = IncludedFiles(files);
    EXPECT_EQ(shared.size(), 4U);
    PamFiles all = files;
    int edited = 0;
    for (const auto& [name, text] : files) {
        std::string on;
        try {
            on = WithPamModule(files, name, kProvider);
        } catch (const LoginsError&) {
            // The package's templates have "$auth_primary" where rules will be.
            EXPECT_TRUE(name.starts_with("edited_") || name.starts_with("debian_libpam-runtime_common-")) << name;
            continue;
        }
        PamFiles enabled = files;
        enabled[name] = on;
        EXPECT_EQ(text, WithoutPamModule(enabled, name, kProvider.pamModule)) << name;
        if (shared.contains(name)) {
            EXPECT_NO_THROW(ProveJumpsKept(files, enabled, kProvider.pamModule)) << name;
        }
        all[name] = on;
        if (on != text) ++edited;
    }
    EXPECT_GT(edited, 25);
    EXPECT_NO_THROW(ProveJumpsKept(files, all, kProvider.pamModule));
}

TEST(PamEditTest, SecondEditChangesNothing) {
    const std::string once = With("auth required pam_unix.so\nsession required pam_unix.so\n");
    EXPECT_EQ(once, With(once));
}

TEST(PamEditTest, TemplatesOfAuthselectKeepTheirConditions) {
    const std::string text =
        "{imply \"with-smartcard\" if \"with-smartcard-required\"}\n"
        "auth        required      pam_env.so\n"
        "auth        required      pam_faillock.so preauth silent   {include if \"with-faillock\"}\n"
        "auth        sufficient    pam_unix.so {if not \"without-nullok\":nullok}\n";
    const std::string edited = WithPamModuleInTemplate({{"system-auth", text}}, "system-auth", kProvider);
    EXPECT_THAT(edited, HasSubstr("{imply \"with-smartcard\" if \"with-smartcard-required\"}\n"));
    EXPECT_THAT(edited,
                HasSubstr("{include if \"with-faillock\"}\nauth\t[success=1 default=ignore]\tpam_localuser.so\n"
                          "auth\tsufficient\tpam_x.so quiet domain=corp.test\nauth        sufficient    pam_unix"));
    EXPECT_EQ(
        "passwd:     files {if \"with-altfiles\":altfiles }systemd x   {exclude if \"with-custom-passwd\"}\n"
        "hosts: files\n",
        WithNssServiceInTemplate(
            "passwd:     files {if \"with-altfiles\":altfiles }systemd   {exclude if \"with-custom-passwd\"}\n"
            "hosts: files\n",
            kProvider));
}

TEST(PamEditTest, ProfileNamesTheModuleInEveryStack) {
    EXPECT_EQ(
        "Name: Directory logins (nimauth)\nDefault: no\nPriority: 128\nAuth-Type: Primary\n"
        "Auth:\n\t[success=end default=ignore]\tpam_x.so quiet domain=corp.test use_first_pass\n"
        "Auth-Initial:\n\t[success=end default=ignore]\tpam_x.so quiet domain=corp.test\n"
        "Account-Type: Additional\nAccount:\n\t[success=1 default=ignore]\tpam_localuser.so\n"
        "\t[success=ok new_authtok_reqd=ok user_unknown=ignore default=bad]\tpam_x.so quiet domain=corp.test\n"
        "Password-Type: Primary\nPassword:\n\t[success=end default=ignore]\tpam_x.so quiet domain=corp.test\n"
        "Session-Type: Additional\nSession:\n\toptional\tpam_x.so quiet domain=corp.test\n",
        PamProfile(kProvider));
}

TEST(PamEditTest, TemplateGetsTheRulesOfEveryType) {
    const std::string guard = "\t[success=1 default=ignore]\tpam_localuser.so\n";
    const std::string module = "\tpam_x.so quiet domain=corp.test\n";
    const PamFiles files = {{"a",
                             "auth required pam_unix.so\naccount required pam_unix.so\n"
                             "password required pam_unix.so\nsession required pam_unix.so\n"}};
    const std::string edited = WithPamModuleInTemplate(files, "a", kProvider);
    EXPECT_EQ("auth" + guard + "auth\tsufficient" + module + "auth required pam_unix.so\naccount" + guard +
                  "account\t[success=ok new_authtok_reqd=ok user_unknown=ignore default=bad]" + module +
                  "account required pam_unix.so\npassword" + guard + "password\tsufficient" + module +
                  "password required pam_unix.so\nsession\toptional" + module + "session required pam_unix.so\n",
              edited);
    EXPECT_EQ(edited, WithPamModuleInTemplate({{"a", edited}}, "a", kProvider)) << "once is enough";
    EXPECT_EQ("auth required a.so\n", WithPamModuleInTemplate({{"a", "auth required a.so\n"}}, "a", kProvider));
}

TEST(PamEditTest, EveryTypeIsGuardedButSessions) {
    const std::string guard = " [success=1 default=ignore] pam_localuser.so\n";
    const std::string module = " pam_x.so quiet domain=corp.test\n";
    const std::string text =
        "auth required pam_unix.so\naccount required pam_unix.so\npassword required pam_unix.so\n"
        "session required pam_unix.so\n";
    const std::string edited = With(text);
    EXPECT_EQ("auth" + guard + "auth sufficient" + module + "auth required pam_unix.so\naccount" + guard +
                  "account [success=ok new_authtok_reqd=ok user_unknown=ignore default=bad]" + module +
                  "account required pam_unix.so\npassword" + guard + "password sufficient" + module +
                  "password required pam_unix.so\nsession optional" + module + "session required pam_unix.so\n",
              edited);
    EXPECT_EQ(text, Without(edited));
}

TEST(PamEditTest, RemovalTakesTheModulesRulesAndTheirGuardsOnly) {
    const std::string kept =
        "auth [success=1 default=ignore] pam_localuser.so\naccount required pam_x.so2\n"
        "account [success=ok default=ignore] pam_localuser.so\n@include pam_x.so\nauth include pam_x.so\n";
    const std::string before = kept + "account required /lib/security/pam_x.so a b\nauth required b.so\n";
    EXPECT_EQ(kept + "auth required b.so\n", Without(before));
    EXPECT_EQ("auth required b.so\n", Without("auth required pam_x.so\nauth required b.so\n"));
    const std::string others = "account [success=1 default=ignore] pam_localuser.so\nauth required pam_x.so\n";
    EXPECT_EQ("account [success=1 default=ignore] pam_localuser.so\n", Without(others));
    EXPECT_EQ("auth   required\tb.so", Without("auth   required\tb.so")) << "nothing to remove";
}

TEST(PamEditTest, RulesThatGoOnBehindTheirLineStayWhole) {
    const std::string rest = "auth required pam_unix.so \\\n b c # d\n";
    EXPECT_EQ(kAuthRules + rest, With(rest));
    EXPECT_EQ(rest, Without(kAuthRules + rest));
}

TEST(PamEditTest, LastLineWithoutAnEndCanGo) {
    const struct {
        std::string before;
        std::string after;
    } rows[] = {{"auth required b.so\nauth required pam_x.so", "auth required b.so\n"},
                {"auth required b.so\n" + std::string(kAuthRules, sizeof kAuthRules - 2), "auth required b.so\n"},
                {"auth required pam_x.so\nauth required b.so", "auth required b.so"},
                {"auth required pam_x.so", ""},
                {"# c\nauth required pam_x.so", "# c\n"}};
    for (const auto& row : rows) EXPECT_EQ(row.after, Without(row.before)) << row.before;
}

TEST(PamEditTest, ModuleIsThereOnlyAsARule) {
    EXPECT_TRUE(HasPamModule("auth required a.so\nauth required /x/pam_x.so\n", "pam_x.so"));
    for (const char* const text : {"", "# auth required pam_x.so\n", "@include pam_x.so\n", "auth include pam_x.so\n",
                                   "auth substack pam_x.so\n", "auth required a.so pam_x.so\n", "auth pam_x.so\n"}) {
        EXPECT_FALSE(HasPamModule(text, "pam_x.so")) << text;
    }
}

TEST(PamEditTest, JumpsThatEndBeforeThePlaceDoNotMoveIt) {
    const struct {
        const char* before;
        const char* last;
        bool moves;
    } rows[] = {
        {"auth [success=2 default=ignore] a.so\nauth required b.so\n", "auth required pam_unix.so\n", true},
        {"auth [success=2 default=ignore] a.so\nauth required b.so\nauth required c.so\n",
         "auth required pam_unix.so\n", false},
        {"auth [success=2 default=ignore] a.so\nauth required b.so\naccount required c.so\n",
         "auth required pam_unix.so\n", true},
        {"auth [success=2 default=ignore] a.so\nauth required b.so\n@include none\n", "auth required pam_unix.so\n",
         true},
        {"auth [success=2 default=ignore] a.so\nauth required b.so\nauth include none\n", "auth required pam_unix.so\n",
         true},
        {"account [success=2 default=ignore] a.so\n", "auth required pam_unix.so\n", false},
    };
    for (const auto& row : rows) {
        const PamFiles files = {{"login", row.before + std::string(row.last)}, {"none", "# nothing\n"}};
        const std::string expected = row.moves ? std::string(kAuthRules) + row.before + row.last
                                               : std::string(row.before) + kAuthRules + row.last;
        EXPECT_EQ(expected, WithPamModule(files, "login", kProvider)) << row.before;
    }
}

// A jump that was moved for may be jumped over by one before it.
TEST(PamEditTest, JumpsOverJumpsMoveThePlaceAgain) {
    const std::string text =
        "auth required z.so\nauth [success=1 default=ignore] a.so\nauth [success=1 default=ignore] b.so\n"
        "auth required pam_unix.so\n";
    EXPECT_EQ("auth required z.so\n" + std::string(kAuthRules) + text.substr(text.find('\n') + 1), With(text));
}

}  // namespace
}  // namespace nimbrel::logins
