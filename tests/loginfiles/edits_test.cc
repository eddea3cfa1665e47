#include "tools/loginfiles/edits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/temporary_folder.h"
#include "tools/loginfiles/logins_error.h"

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
    EXPECT_THROW(WithNssService(text, {"", {}, "x", {"word"}}), LoginsError);
}

TEST(NssEditTest, RemovalTakesTheServiceOnly) {
    EXPECT_EQ("passwd: files [NOTFOUND=return] y\nhosts: files\n",
              WithoutNssService("passwd: files [NOTFOUND=return] x y\nhosts: x files\n", kProvider));
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
    try {
        WithNssService("passwd: files\n= nonsense\n", kProvider);
        ADD_FAILURE() << "not refused";
    } catch (const LoginsError& error) {
        EXPECT_EQ(LoginsError::Kind::Refused, error.Reason());
        EXPECT_THAT(error.what(), HasSubstr("line 2"));
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

TEST(PamEditTest, FilesOfRealSystemsSurviveOnAndOff) {
    PamFiles files;
    for (const auto& item : std::filesystem::directory_iterator(NIMAUTH_LOGIN_FILES "/pam")) {
        files[item.path().filename()] = ReadFile(item.path());
    }
    // Names as the systems' own includes use them.
    for (const char* const name : {"common-auth", "common-account", "common-password", "common-session"}) {
        files[name] = files.at(std::string("debian_generated_") + name);
    }
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
        EXPECT_EQ(text, WithoutPamModule(on, kProvider.pamModule)) << name;
        if (on != text) ++edited;
    }
    EXPECT_GT(edited, 25);
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
    const std::string profile = PamProfile(kProvider);
    for (const char* const line :
         {"Auth:\n\t[success=end default=ignore]\tpam_x.so quiet domain=corp.test use_first_pass\n",
          "Auth-Initial:\n\t[success=end default=ignore]\tpam_x.so quiet domain=corp.test\n",
          "Session:\n\toptional\tpam_x.so quiet domain=corp.test\n", "Default: no\n"}) {
        EXPECT_THAT(profile, HasSubstr(line));
    }
}

}  // namespace
}  // namespace nimbrel::logins
