// The trial alone, on PAM files that no host has.

#include "tools/loginfiles/trial.h"
#include "logins_host.h"
#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::testing {
namespace {

using logins::LoginsError;
using logins::PamFiles;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr char kNobody[] = "auth required pam_deny.so\naccount required pam_deny.so\n";
constexpr char kAccount[] = "account required pam_unix.so\n";

// Every line but those of the module.
std::string Without(const std::string& module, const std::string& text) {
    std::string without;
    for (const logins::PamLine& line : logins::ParsePam(text)) {
        if (logins::ModuleName(line) != module) without += line.raw;
    }
    return without;
}

class TrialTest : public LoginsHost {
 protected:
    // Why the candidate is refused; empty if it is not.
    static std::string Refusal(const std::string& module, const logins::Candidate& candidate) {
        logins::Journal journal;
        journal.Lock();
        try {
            logins::Try(journal, {module, {}, "nimembedded", {}}, candidate);
        } catch (const LoginsError& error) {
            EXPECT_EQ(LoginsError::Kind::Refused, error.Reason());
            return error.what() + std::string(" -- ") + error.Remedy();
        }
        return "";
    }
    static std::string RefusalToChange(const std::string& before, const std::string& after,
                                       const std::vector<std::string>& named = {}) {
        return Refusal("pam_x.so",
                       {{{"door", before}, {"other", kNobody}}, {{"door", after}, {"other", kNobody}}, false, named});
    }
    static std::string RefusalToDisable(const std::string& text) {
        return RefusalToChange(text, Without("pam_x.so", text));
    }
};

// Whatever else the stack asks may say yes; when the module goes, nothing may be left that refuses.
TEST_F(TrialTest, StackThatTheModuleAloneHeldShutIsRefused) {
    for (const char* const rules :
         {"auth optional pam_exec.so\nauth sufficient pam_unix.so nullok\nauth required pam_x.so\n",
          "auth [success = ok] pam_exec.so\nauth requisite pam_x.so\n",
          "auth [ignore=ignore default=ok] pam_exec.so\nauth requisite pam_x.so\n",
          "auth required pam_x.so\nauth sufficient pam_exec.so\nauth required pam_deny.so\n",
          "auth required pam_x.so\nauth [success=1 default=ignore] pam_exec.so\nauth requisite pam_deny.so\n"
          "auth required pam_permit.so\n"}) {
        EXPECT_THAT(RefusalToDisable(rules + std::string(kAccount)),
                    HasSubstr("root with a wrong password would be let in by 'door'"))
            << rules;
    }
}

TEST_F(TrialTest, RemedyForSuchAStackIsThatOfTheToolThatMadeIt) {
    const std::string rules = kAccount + std::string("auth sufficient pam_unix.so\nauth optional pam_env.so\n");
    const auto refusal = [&](const std::string& name, const std::string& module) {
        return Refusal(module, {{{name, rules + "auth required " + module + '\n'}, {"other", kNobody}},
                                {{name, rules}, {"other", kNobody}},
                                false,
                                {}});
    };
    EXPECT_THAT(refusal("common-auth-pc", "pam_sss.so"), EndsWith(": 'pam-config --delete --sss'"));
    for (const auto& [name, module] :
         {std::pair("common-auth", "pam_sss.so"), std::pair("common-auth-pc", "pam_x.so")}) {
        EXPECT_THAT(refusal(name, module),
                    EndsWith(std::string(" -- nothing but ") + module +
                             " refuses there: make its rule 'sufficient' and put 'required pam_deny.so' behind it"));
    }
}

TEST_F(TrialTest, StackThatRefusesByItselfIsNot) {
    for (const char* const rules :
         {"auth optional pam_exec.so\nauth sufficient pam_unix.so\nauth sufficient pam_x.so\n"
          "auth required pam_deny.so\n",
          "auth sufficient pam_x.so\nauth [success=ok default=bad] pam_unix.so\nauth optional pam_exec.so\n",
          "auth sufficient pam_exec.so\nauth sufficient pam_x.so\nauth required pam_unix.so\n"}) {
        EXPECT_EQ("", RefusalToDisable(rules + std::string(kAccount))) << rules;
    }
}

// A rule in front jumps by a number that the rules behind it make wrong.
TEST_F(TrialTest, StackThatWouldHurtOthersThanRootOrOtherStepsIsRefused) {
    const struct {
        std::string type;
        std::string rule;
        const char* reason;
    } rows[] = {
        {"auth", "[success=2 default=ignore] pam_usertype.so isregular\n",
         "a local user with the right password could not log in through 'door'"},
        {"password", "[success=2 default=ignore] pam_warn.so\n",
         "root with the right password could not change the password through 'door'"},
        {"session", "[success=2 default=ignore] pam_warn.so\n",
         "root with the right password could not open a session through 'door'"},
    };
    for (const auto& [type, rule, reason] : rows) {
        const std::string first = kAccount + type + ' ' + rule;
        const std::string last = type + " requisite pam_deny.so\n" + type + " required pam_permit.so\n";
        EXPECT_THAT(RefusalToChange(first + type + " [success=1 default=ignore] pam_unix.so\n" + last,
                                    first + type + " [success=2 default=ignore] pam_unix.so\n" + type +
                                        " [success=1 default=ignore] pam_x.so\n" + last),
                    HasSubstr(reason));
    }
}

// An administrator's own rule keeps the directory's users out of one service; the host's others are not held up by it.
TEST_F(TrialTest, ServiceForLocalUsersOnlyNeedsNotLetTheDirectorysIn) {
    const std::string shared = std::string("auth sufficient pam_unix.so\nauth sufficient ") + kModule +
                               "\nauth required pam_deny.so\n" + kAccount;
    const auto refusal = [&](const std::string& rule, const std::vector<std::string>& named) {
        PamFiles before = {{"door", rule + "@include shared\n"}, {"gate", "@include shared\n"}, {"other", kNobody}};
        PamFiles after = before;
        before["shared"] = Without(kModule, shared);
        after["shared"] = shared;
        return Refusal(kModule, {before, after, true, named});
    };
    for (const char* const control : {"account required", "auth requisite", "auth [success=ok default=die]"}) {
        EXPECT_EQ("", refusal(control + std::string(" pam_localuser.so\n"), {})) << control;
    }
    EXPECT_THAT(refusal("account required pam_localuser.so\n", {"door"}),
                HasSubstr("a directory user with the right password could not log in through 'door': "
                          "pam_localuser.so in 'door' lets in local users only -- leave that service out, or take"));
    EXPECT_THAT(refusal("auth requisite pam_deny.so\nauth required pam_unix.so\n", {"door"}), HasSubstr("'door'"));
    // That rule is not why.
    const std::string notForThem = "auth [success=ignore default=";
    for (const std::string& rules : {"account required pam_localuser.so\n" + notForThem + "2] pam_localuser.so\n",
                                     notForThem + "3] pam_localuser.so\nauth required pam_localuser.so\n"}) {
        EXPECT_THAT(refusal(rules, {}), HasSubstr("a directory user with the right password could not log in through "
                                                  "'door': "))
            << rules;
    }
}

// With such a rule in what all services share, nobody of the directory would get in anywhere.
TEST_F(TrialTest, HostForLocalUsersOnlyIsRefused) {
    const std::string auth =
        std::string("auth sufficient pam_unix.so\nauth sufficient ") + kModule + "\nauth required pam_deny.so\n";
    const std::string account = "account required pam_localuser.so\n" + std::string(kAccount);
    const auto refusal = [&](const PamFiles& after, const std::string& earlier) {
        PamFiles before = after;
        for (auto& [name, text] : before) text = Without(kModule, text) + (name == "gate" ? earlier : "");
        return Refusal(kModule, {before, after, true, {}});
    };
    const char* const all = "@include common-auth\n@include common-account\n";
    const PamFiles split = {{"common-auth", auth}, {"common-account", account}, {"door", all}, {"other", all}};
    const PamFiles shared = {{"system-auth", auth + account}, {"door", "@include system-auth\n"}, {"other", kNobody}};
    EXPECT_THAT(refusal(split, ""),
                EndsWith("a directory user with the right password could not log in through any service: "
                         "pam_localuser.so in 'common-account' lets in local users only -- take that rule out of "
                         "'common-account'"));
    EXPECT_THAT(refusal(shared, ""),
                HasSubstr("could not log in through any service: pam_localuser.so in 'system-auth'"));
    PamFiles one = shared;
    one["gate"] = auth + kAccount;
    EXPECT_EQ("", refusal(one, "")) << "one is enough";
    PamFiles before = shared;
    before["system-auth"] = Without(kModule, auth + account);
    before["gate"] = one["gate"];
    EXPECT_EQ("", Refusal(kModule, {before, one, true, {}})) << "nor need it be a service that changes";
    one["gate"] = auth + account;
    EXPECT_NE("", refusal(one, std::string("session optional ") + kModule + '\n')) << "nobody got in by that rule";
    PamFiles card = split;
    card["card"] = std::string("auth required ") + kModule + "\n@include common-account\n";
    before = card;
    before["common-auth"] = Without(kModule, auth);
    EXPECT_NE("", Refusal(kModule, {before, card, true, {}})) << "nor by that service";
}

TEST_F(TrialTest, RuleForLocalUsersOnlyIsToldWhereItStands) {
    const std::string module = kModule;
    const PamFiles after = {{"door", "auth sufficient pam_unix.so\nauth sufficient " + module +
                                         "\nauth required pam_deny.so\naccount required pam_permit.so\n"
                                         "password include secrets\n"},
                            {"secrets",
                             "password requisite pam_localuser.so\npassword sufficient pam_unix.so\n"
                             "password sufficient " +
                                 module + "\npassword required pam_deny.so\n"},
                            {"other", std::string("auth required pam_localuser.so\n") + kNobody}};
    PamFiles before = after;
    for (auto& [name, text] : before) text = Without(kModule, text);
    EXPECT_THAT(Refusal(kModule, {before, after, true, {"door"}}),
                HasSubstr("could not change the password through 'door': pam_localuser.so in 'secrets' lets"));
}

TEST_F(TrialTest, NamedServiceHasToLetUsersInIfItAsksForPasswords) {
    const std::string user = "account required pam_unix.so\nsession required pam_unix.so\nsession optional pam_x.so\n";
    for (const char* const rules : {"", "auth sufficient pam_rootok.so\n"}) {
        EXPECT_EQ("", RefusalToChange(rules + Without("pam_x.so", user), rules + user, {"door"})) << rules;
    }
    const std::string shut = "auth requisite pam_deny.so\nauth required pam_unix.so\n";
    EXPECT_THAT(RefusalToChange(shut + Without("pam_x.so", user), shut + user, {"door"}),
                HasSubstr("root with the right password could not log in through 'door'"));
    EXPECT_EQ("", RefusalToChange(shut + Without("pam_x.so", user), shut + user));
}

}  // namespace
}  // namespace nimbrel::testing
