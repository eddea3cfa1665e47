// Log-ins at controllers: who is taken for one, what is believed of it, and who is asked instead.

#include "session.h"

#include <gmock/gmock.h>

#include "joining_host.h"
#include "log_on.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Sessions : public JoiningHost {
 protected:
    Sessions() { settings.avoidance = std::chrono::seconds(60); }
    // What other tests have left.
    ~Sessions() override { Forget(); }

    void Forget() const {
        Settings forgetting = settings;
        forgetting.avoidance = std::chrono::seconds(0);
        for (const char* name : {"dc1.corp.test", "dc2.corp.test", "alias.corp.test", "127.0.0.1", "127.0.0.2"}) {
            AvoidController(forgetting, name);
        }
    }

    Session Open(const std::vector<std::string>& preferred = {}) {
        return {settings, "corp.test", preferred, UserLogOn(settings, kAdministrator, InTime()), InTime()};
    }
    // The controller's name, or the status where there is no session.
    std::string NameOf(const std::vector<std::string>& preferred = {}, Patience patience = Patience::Query) {
        try {
            const auto logOn = UserLogOn(settings, kAdministrator, InTime());
            return Session(settings, "corp.test", preferred, logOn, InTime(), patience).At().name;
        } catch (const AdError& error) {
            return std::to_string(error.Status());
        }
    }
    static Deadline InTime() { return Deadline::After(std::chrono::seconds(20)); }
    // One that the DNS names after dc1.
    std::unique_ptr<TestController> MakeSecond() {
        Forget();  // that nobody listened there before
        auto second = corp.MakeController("dc2.corp.test", "127.0.0.2");
        corp.names->AddService("_ldap._tcp.dc._msdcs.corp.test", "dc2.corp.test", {.priority = 10});
        return second;
    }
    // Replaces a part of the pings from the `first` on that is answered, counted from 0, to the `last`.
    static void ChangePings(TestController& controller, const std::string& from, const std::string& to, int first,
                            int last = 1'000'000) {
        controller.SetChangePing([=, count = 0](const std::string& reply) mutable {
            const bool isMeant = count >= first && count <= last;
            ++count;
            return isMeant ? std::string(reply).replace(reply.find(from), from.size(), to) : reply;
        });
    }

    // Takes the flag out of the pings.
    static void ChangeFlags(TestController& controller, unsigned flag) {
        controller.SetChangePing([flag](std::string reply) {
            reply[4] = static_cast<char>(reply[4] & ~flag);
            reply[5] = static_cast<char>(reply[5] & ~(flag >> 8));
            return reply;
        });
    }

    static constexpr UserCredentials kAdministrator = {"admin1", "Secret-1"};
};

TEST_F(Sessions, MemberOfTheDomainIsNoController) {
    TestController member(corp.entries, corp.keys, {.host = "web.corp.test", .isMember = true},
                          {"127.0.0.6", corp.controller.LdapPort(), corp.controller.KerberosPort()});
    corp.names->Forget("dc1.corp.test");
    corp.names->AddAddress("dc1.corp.test", "127.0.0.6");
    EXPECT_EQ(StatusOf([&] { Open({"dc1.corp.test"}); }), kStatusNoSuchDomain);
    EXPECT_THAT(member.Requests(), Not(IsEmpty()));
    EXPECT_THAT(member.Requests(), Not(Contains("bind ")));
}

TEST_F(Sessions, WhatWasSaidInClearIsAskedForAgain) {
    ChangePings(corp.controller, "\4CORP", "\4EVIL", 0, 0);
    EXPECT_EQ(Open().At().facts.netbiosDomain, "CORP");
}

// A later log-on there may have to tell a refusal apart.
TEST_F(Sessions, NameForTheCertificateStays) {
    EXPECT_EQ(Open().At().certifiedName, "corp.test");
    EXPECT_EQ(Open({"dc1.corp.test"}).At().certifiedName, "dc1.corp.test");
}

TEST_F(Sessions, ControllerHasOneName) {
    ChangePings(corp.controller, "\3dc1", "\3dc9", 1);
    EXPECT_EQ(StatusOf([&] { Open(); }), kStatusNoSuchDomain);
}

TEST_F(Sessions, FailOverIsToAnotherControllerUnderWhateverName) {
    const auto second = MakeSecond();
    corp.names->AddAddress("alias.corp.test", "127.0.0.1");
    corp.controller.layers = 2;  // answers the ping, and seals nothing
    for (const char* name : {"127.0.0.1", "alias.corp.test", "dc1.corp.test"}) {
        EXPECT_EQ(NameOf({name}), "dc2.corp.test") << name;
        Forget();
    }
    EXPECT_EQ(NameOf({"127.0.0.1"}), "dc2.corp.test");
    EXPECT_EQ(NameOf({"alias.corp.test"}), "dc2.corp.test") << "the same one";
}

TEST_F(Sessions, ControllerWithAnotherTimeIsPassedOver) {
    const auto second = MakeSecond();
    corp.controller.clockOffset = 400;
    EXPECT_EQ(NameOf(), "dc2.corp.test");
    Forget();
    second->clockOffset = -400;
    EXPECT_EQ(NameOf(), "1398") << "it is this host's clock";
}

TEST_F(Sessions, OtherTimeIsToldWhereNobodyElseAnswers) {
    const auto second = MakeSecond();
    corp.controller.clockOffset = 400;
    second->SetBehave([](const std::string&, const std::string&) { return Behaviour::HangsUp; });
    EXPECT_EQ(NameOf(), "1398");
}

TEST_F(Sessions, ChangesGoToAControllerThatTakesThem) {
    const auto second = MakeSecond();
    ChangeFlags(corp.controller, 0x100);
    EXPECT_EQ(NameOf({}, Patience::Change), "dc2.corp.test");
    EXPECT_THAT(corp.controller.Requests(), Not(Contains("bind ")));
    EXPECT_EQ(NameOf({"dc1.corp.test"}), "dc1.corp.test") << "good enough for questions";
    EXPECT_EQ(Join(), 0U);
    TheHost().SetPreferredControllers({"dc1.corp.test"});
    EXPECT_EQ(Leave(), 0U);
    ChangeFlags(*second, 0x100);
    EXPECT_THAT(JoinText(), HasSubstr("is a read-only controller, and takes no changes"));
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
}

TEST_F(Sessions, ControllerServesLdapAndKerberos) {
    const auto second = MakeSecond();
    for (const unsigned flag : {0x8U, 0x20U}) {
        ChangeFlags(corp.controller, flag);
        EXPECT_EQ(NameOf(), "dc2.corp.test") << flag;
        Forget();
    }
    ChangeFlags(*second, 0x20);
    EXPECT_EQ(NameOf(), "1355");
}

TEST_F(Sessions, PausedControllerIsAskedLast) {
    corp.controller.SetChangePing([](const std::string& reply) { return std::string(reply).replace(0, 1, "\x18"); });
    EXPECT_EQ(NameOf(), "dc1.corp.test");
    const auto second = MakeSecond();
    EXPECT_EQ(NameOf(), "dc2.corp.test");
}

// A second controller that has not heard of what the first one did.
class LaggingController : public Sessions {
 protected:
    LaggingController() {
        corp.names->AddAddress("dc2.corp.test", "127.0.0.2");
        TheHost().SetPreferredControllers({"dc1.corp.test"});
        EXPECT_EQ(Join(), 0U);
        TheHost().SetPreferredControllers({"dc2.corp.test", "dc1.corp.test"});
    }

    KeyCentre keys{"CORP.TEST"};
    TestController second{corp.entries,
                          keys,
                          {.host = "dc2.corp.test"},
                          {"127.0.0.2", corp.controller.LdapPort(), corp.controller.KerberosPort()}};
};

TEST_F(LaggingController, AnotherOneKnowsTheAccount) {
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    EXPECT_EQ(keys.requests, 1);
}

TEST_F(LaggingController, AnotherOneKnowsTheSecret) {
    keys.SetPassword("NODE01$", "of the join before", "salt");
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
}

TEST_F(LaggingController, TwoThatAgreeAreBelieved) {
    corp.keys.Refuse("NODE01$", KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN);
    const int before = corp.keys.requests;
    EXPECT_EQ(TheHost().TrustState(), kTrustStateAccountMissing);
    EXPECT_EQ(corp.keys.requests, before + 1);
    EXPECT_EQ(keys.requests, 1);
}

TEST_F(LaggingController, RefusalStandsWhereNobodyElseAnswers) {
    corp.controller.SetBehave([](const std::string&, const std::string&) { return Behaviour::HangsUp; });
    settings.controllerBudget = std::chrono::seconds(2);
    EXPECT_EQ(TheHost().TrustState(), kTrustStateAccountMissing);
}

// Each try counts towards the user's lock-out.
TEST_F(LaggingController, WrongPasswordOfAUserIsTriedOnce) {
    TheHost().Part(std::nullopt);
    TheHost().SetPreferredControllers({"dc1.corp.test"});
    const int before = corp.keys.requests + keys.requests;
    EXPECT_EQ(Join("", "wrong"), kStatusLogonFailure);
    EXPECT_EQ(corp.keys.requests + keys.requests, before + 2) << "the question how to prove it, and the proof";
}

TEST_F(Sessions, ControllerWithoutAKeyThatTheHostMayUseIsPassedOver) {
    corp.keys.Refuse("ldap/dc1.corp.test/corp.test", KRB5KDC_ERR_ETYPE_NOSUPP);
    EXPECT_EQ(NameOf(), "1355");
    const auto second = MakeSecond();
    EXPECT_EQ(NameOf(), "dc2.corp.test");
}

TEST_F(Sessions, UserWithoutAKeyThatTheHostMayUseIsTold) {
    corp.keys.Refuse("admin1", KRB5KDC_ERR_ETYPE_NOSUPP);
    EXPECT_EQ(Join(), kStatusAccountRestriction);
    EXPECT_THAT(JoinText(), HasSubstr("an account without AES keys gets them with its next password"));
}

}  // namespace
}  // namespace nimbrel::ad::test
