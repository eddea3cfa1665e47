#include "tools/loginfiles/pam_jumps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temporary_folder.h"
#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {
namespace {

using ::testing::HasSubstr;

std::string Without(const std::string& text, const PamFiles& others = {}) {
    PamFiles files = others;
    files["a"] = text;
    return WithoutPamModule(files, "a", "pam_x.so");
}

std::string Refusal(const std::function<void()>& act) {
    try {
        act();
    } catch (const LoginsError& error) {
        EXPECT_EQ(LoginsError::Kind::Refused, error.Reason());
        return error.what();
    }
    return "";
}

constexpr char kX[] = "auth sufficient pam_x.so\n";
constexpr char kDeny[] = "auth required pam_deny.so\n";

// The module had always been there, behind a rule that passes it over for system accounts.
TEST(PamJumpsTest, DenialBehindTheModuleIsNotPassedOverWhenTheModuleGoes) {
    const std::string text = ReadFile(NIMAUTH_LOGIN_FILES "/pam/fedora_system-auth");
    const std::string without = WithoutPamModule({{"system-auth", text}}, "system-auth", "pam_sss.so");
    EXPECT_THAT(without,
                HasSubstr("pam_unix.so nullok\n"
                          "auth        [default=ignore ignore=ignore success=ok]         pam_usertype.so "
                          "isregular\nauth        required                                     pam_deny.so\n"));
    EXPECT_THAT(without,
                HasSubstr("auth        [default=1 ignore=ignore success=ok]         pam_usertype.so isregular\n"
                          "auth        [default=1 ignore=ignore success=ok]         pam_localuser.so\n"));
    ProveJumpsKept({{"system-auth", text}}, {{"system-auth", without}}, "pam_sss.so");
}

TEST(PamJumpsTest, JumpsCountWithoutWhatGoes) {
    const struct {
        std::string before;
        std::string after;
    } rows[] = {
        {"auth [success=2 default=ignore] a.so\n" + std::string(kX) + kDeny,
         "auth [success=1 default=ignore] a.so\n" + std::string(kDeny)},
        {"auth [default=1] a.so\n" + std::string(kX) + kDeny, "auth [default=ignore] a.so\n" + std::string(kDeny)},
        {"AUTH [default = 2  success=ok] a.so # [1=2]\n" + std::string(kX) + kDeny,
         "AUTH [default = 1  success=ok] a.so # [1=2]\n" + std::string(kDeny)},
        // One jump ends in front of the module, the other behind it.
        {"auth [success=1 default=3] a.so\nauth required b.so\nauth required c.so\n" + std::string(kX) + kDeny,
         "auth [success=1 default=2] a.so\nauth required b.so\nauth required c.so\n" + std::string(kDeny)},
        // Too far: refused by libpam before and after.
        {"auth [success=9] a.so\n" + std::string(kX), "auth [success=8] a.so\n"},
        // Rules of another type are no rules of this chain.
        {"auth [success=1] a.so\naccount required b.so\n" + std::string(kX) + kDeny,
         "auth [success=ignore] a.so\naccount required b.so\n" + std::string(kDeny)},
        // It ends at the module, whose answer was not needed.
        {"auth [success=1] a.so\nauth required b.so\n" + std::string(kX) + kDeny,
         "auth [success=1] a.so\nauth required b.so\n" + std::string(kDeny)},
        // A guard goes with its module.
        {"auth [success=3] a.so\nauth [success=1 default=ignore] pam_localuser.so\n" + std::string(kX) +
             "auth required b.so\n" + kDeny,
         "auth [success=1] a.so\nauth required b.so\n" + std::string(kDeny)},
        // Behind the module nothing changes.
        {kX + std::string("auth [success=1] a.so\nauth required b.so\n") + kDeny,
         std::string("auth [success=1] a.so\nauth required b.so\n") + kDeny},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.after, Without(row.before)) << row.before;
        EXPECT_EQ("", Refusal([&] {
                      ProveJumpsKept({{"a", row.before}}, {{"a", row.after}}, "pam_x.so");
                  }))
            << row.before;
    }
}

TEST(PamJumpsTest, IncludedRulesCountOneByOneAndASubstackAsOne) {
    const PamFiles others = {{"two", "auth required b.so\nauth required c.so\n"}};
    for (const auto& [control, jump, left] :
         {std::tuple("include", 3, 2), std::tuple("substack", 2, 1), std::tuple("substack", 1, 1)}) {
        const std::string rest = std::string("auth ") + control + " two\n";
        EXPECT_EQ("auth [success=" + std::to_string(left) + "] a.so\n" + rest + kDeny,
                  Without("auth [success=" + std::to_string(jump) + "] a.so\n" + rest + kX + kDeny, others));
    }
}

TEST(PamJumpsTest, JumpThatEndsAtAModuleWithASayIsRefused) {
    for (const char* const control : {"required", "requisite", "[success=ok default=die]"}) {
        const std::string text = "auth [success=1] a.so\nauth required b.so\nauth " + std::string(control) +
                                 " pam_x.so\nauth required pam_permit.so\n";
        EXPECT_THAT(Refusal([&] { Without(text); }),
                    HasSubstr("the rule in line 1 of 'a' ([success=1] a.so) jumps over the place of the change"));
    }
}

TEST(PamJumpsTest, JumpsOfOtherFilesIntoTheChangedOneAreRefused) {
    const PamFiles before = {{"common", kX + std::string("auth required pam_unix.so\n") + kDeny},
                             {"login", "auth [success=2] a.so\nauth include common\n"}};
    PamFiles after = before;
    after["common"] = WithoutPamModule(before, "common", "pam_x.so");
    EXPECT_THAT(Refusal([&] { ProveJumpsKept(before, after, "pam_x.so"); }),
                HasSubstr("the rule in line 1 of 'login'"));
    EXPECT_THAT(Refusal([&] { ProveJumpsKept(after, before, "pam_x.so"); }),
                HasSubstr("the rule in line 1 of 'login'"));
}

TEST(PamJumpsTest, JumpsOutOfAnIncludedFileAreRefused) {
    const PamFiles before = {{"first", "auth [success=1] a.so\n"},
                             {"login", "auth include first\n" + (kX + std::string(kDeny))}};
    PamFiles after = before;
    after["login"] = WithoutPamModule(before, "login", "pam_x.so");
    EXPECT_THAT(Refusal([&] { ProveJumpsKept(before, after, "pam_x.so"); }),
                HasSubstr("the rule in line 1 of 'first'"));
}

// A tool of the host makes "made", with or without the module, and counts its own jumps.
TEST(PamJumpsTest, JumpsIntoMadeFilesAndOverThemAreProvenAlone) {
    const std::string tail = "auth requisite pam_deny.so\nauth required pam_permit.so\n";
    const std::string on =
        "auth [success=2 default=ignore] pam_unix.so\nauth [success=1 default=ignore] pam_x.so\n" + tail;
    const std::string off = "auth [success=1 default=ignore] pam_unix.so nullok\n" + tail;
    const struct {
        std::string off;  // what is included while the module is not there
        int jump;         // over so many rules of the rest
        bool isKept;
    } rows[] = {
        {off, 1, true},   // the place of the module, or what follows it
        {off, 2, false},  // "deny"
        {off, 3, false},  // "permit"
        {off, 4, false},  // the second factor
        {off, 5, false},  // behind it
        {off, 7, true},   // refused by libpam before and after
        {"auth required pam_unix.so\nauth required b.so\n" + tail, 4, true},  // as many, other ones
        {"auth required b.so\nauth required pam_unix.so\n" + tail, 1, false},
        {"auth required pam_unix.so\n", 4, false},
        {"auth required b.so\n", 0, true},  // in front of them all, whatever they are
        {"", 0, true},
    };
    const auto isMade = [](const std::string& name) { return name == "made"; };
    for (const auto& row : rows) {
        const std::string service =
            "auth [success=" + std::to_string(row.jump + 1) +
            "] a.so\nauth required d.so\nauth include made\nauth required factor.so\nauth required c.so\n";
        const PamFiles before = {{"made", on}, {"token", service}};
        const PamFiles after = {{"made", row.off}, {"token", service}};
        for (const auto& [from, to] : {std::pair(before, after), std::pair(after, before)}) {
            EXPECT_EQ(row.isKept,
                      Refusal([&, &was = from, &is = to] { ProveJumpsKept(was, is, "pam_x.so", isMade); }).empty())
                << row.jump << '\n'
                << to.at("made");
        }
    }
    EXPECT_NE("", Refusal([&] {
                  ProveJumpsKept({{"made", on}}, {{"made", off}}, "pam_x.so");
              }))
        << "made by nobody, its own jump is looked at";
}

TEST(PamJumpsTest, RulesThatDifferOtherwiseAreNoProof) {
    const struct {
        const char* was;
        const char* is;
    } rows[] = {
        {"auth [success=1] a.so\n", "auth [success=1] b.so\n"},
        {"auth [success=1] a.so\n", "auth [success=1] a.so c\n"},
        {"auth [success=1] a.so\n", ""},
        {"auth [success=1] a.so\n", "auth [success=die] a.so\n"},
        {"auth [success=1] a.so\n", "auth [success=1 default=die] a.so\n"},
        {"auth [success=1] a.so\n", "auth [default=1] a.so\n"},
        {"auth required a.so\n", "auth sufficient a.so\n"},
        {"auth required a.so\n", "-auth required a.so\n"},
        {"auth [success=ignore] a.so\n", "auth [success=1] a.so\n"},
        {"auth [success=ok] a.so\n", "auth [success=1] a.so\n"},
    };
    for (const auto& row : rows) {
        const PamFiles before = {{"a", row.was + std::string(kDeny)}};
        const PamFiles after = {{"a", row.is + std::string(kDeny)}};
        EXPECT_NE("", Refusal([&] { ProveJumpsKept(before, after, "pam_x.so"); })) << row.was << row.is;
        EXPECT_NE("", Refusal([&] { ProveJumpsKept(after, before, "pam_x.so"); })) << row.is << row.was;
    }
}

// What comes or goes is the module's; a rule of it that an administrator has written stays, and may jump.
TEST(PamJumpsTest, RulesOfTheModuleThatStayAreProvenLikeOthers) {
    const std::string factor = "auth required factor.so\n";
    const std::string common = "auth required pam_unix.so\n" + std::string(kDeny);
    const auto sudo = [&](const std::string& control) {
        return "auth [" + control + " default=ignore] pam_x.so require_cert_auth\nauth include common\n" + factor;
    };
    const auto refusal = [&](const std::string& control, const std::string& after) {
        const PamFiles files = {{"common", common}, {"sudo", sudo(control)}};
        return Refusal([&] { ProveJumpsKept(files, {{"common", kX + common}, {"sudo", after}}, "pam_x.so"); });
    };
    EXPECT_THAT(refusal("success=2", sudo("success=2")), HasSubstr("the rule in line 1 of 'sudo'"));
    EXPECT_EQ("", refusal("success=2", sudo("success=3")));
    EXPECT_EQ("", refusal("success=ok", sudo("success=ok")));
    EXPECT_EQ("", refusal("success=ok", kX + sudo("success=ok"))) << "one comes in front of it";
    EXPECT_EQ("", refusal("success=2", "auth include common\n" + factor)) << "it goes";
}

}  // namespace
}  // namespace nimbrel::logins
