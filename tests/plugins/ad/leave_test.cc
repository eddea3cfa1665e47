// Leaves against a small domain: whose account goes, whose stays, and what keeps the host joined.

#include <gmock/gmock.h>

#include <utility>

#include "controller_locator.h"
#include "host_state.h"
#include "joining_host.h"
#include "log_lines.h"
#include "support/run_program.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Leaves : public JoiningHost {
 protected:
    Leaves() { EXPECT_EQ(Join(), 0U); }

    // As after a join by an earlier version.
    void ForgetSid() {
        HostState state = HostState::Load(settings.membership);
        EXPECT_EQ(std::exchange(state.membership->accountSid, ""), "S-1-5-21-1-2-3-1");
        state.Save(settings.membership);
    }
};

TEST_F(Leaves, DeleteTheAccount) {
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
    EXPECT_FALSE(HasTraces());
}

TEST_F(Leaves, DeleteWhatHangsBelowTheAccount) {
    corp.entries.Put(std::string("CN=RRAS,") + kAccount, {{"objectClass", {"serviceConnectionPoint"}}});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
}

TEST_F(Leaves, DisableTheAccountWhereDeletionIsRefused) {
    Refuse("delete", {kInsufficientAccess});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_EQ(Account()->Text("useraccountcontrol"), "4098");
    EXPECT_FALSE(HasTraces());
}

TEST_F(Leaves, DisableTheAccountWhereWhatHangsBelowMayNotBeDeleted) {
    corp.entries.Put(std::string("CN=RRAS,") + kAccount, {{"objectClass", {"serviceConnectionPoint"}}});
    corp.controller.SetRefuse([deletions = 0](const std::string& operation, const std::string&) mutable {
        return operation == "delete" && ++deletions == 2 ? std::optional(Result{kInsufficientAccess}) : std::nullopt;
    });
    EXPECT_EQ(Leave(), 0U);
    EXPECT_EQ(Account()->Text("useraccountcontrol"), "4098");
    EXPECT_FALSE(HasTraces());
}

TEST_F(Leaves, StayJoinedWhereNeitherIsAllowed) {
    corp.controller.SetRefuse([](const std::string& operation, const std::string&) {
        return operation == "delete" || operation == "modify" ? std::optional(Result{kInsufficientAccess})
                                                              : std::nullopt;
    });
    EXPECT_EQ(Leave(), kStatusAccessDenied);
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "corp.test");
}

TEST_F(Leaves, AccountThatIsGoneIsNoFailure) {
    Refuse("delete", {32});
    EXPECT_EQ(Leave(), 0U) << "gone between the look and the deletion";
    EXPECT_FALSE(HasTraces());
    EXPECT_EQ(Join(), 0U);
    corp.entries.Delete(kAccount, true);
    EXPECT_EQ(Leave(), 0U) << "gone before";
}

TEST_F(Leaves, AccountOfAnotherHostStays) {
    const auto before = Account()->attributes;
    corp.entries.Delete(kAccount, false);
    corp.entries.Add(kAccount, {{"objectclass", {"top", "computer"}}, {"samaccountname", {"NODE01$"}}});
    TakeLogLines();
    EXPECT_EQ(Leave(), 0U);
    EXPECT_THAT(TakeLogLines(),
                ElementsAre("This host leaves 'corp.test' and its machine account 'NODE01' stays there: "
                            "it is not the one with which this host has joined"));
    EXPECT_TRUE(Account());
    EXPECT_NE(Account()->attributes.at("objectsid"), before.at("objectsid"));
    EXPECT_FALSE(HasTraces());
}

TEST_F(Leaves, AccountThatAnotherHostHasTakenOverStays) {
    corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"Another-1\"")}}});
    TakeLogLines();
    EXPECT_EQ(Leave(), 0U);
    EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("it does not take the key of this host's keytab")));
    EXPECT_TRUE(Account());
    EXPECT_FALSE(HasTraces());
}

TEST_F(Leaves, WithoutAKeyTheAccountIsKnownByItsSid) {
    for (const bool isEmpty : {false, true}) {
        std::filesystem::remove(settings.keytab);
        if (isEmpty) WriteFile(settings.keytab, "");
        EXPECT_EQ(Leave(), 0U);
        EXPECT_FALSE(Account());
        EXPECT_FALSE(std::filesystem::exists(settings.membership));
        std::filesystem::remove(settings.keytab);
        EXPECT_EQ(Join(), 0U);
    }
}

TEST_F(Leaves, WithoutAKeyAndASidTheAccountStays) {
    ForgetSid();
    for (const bool isEmpty : {false, true}) {
        const std::string membership = ReadFile(settings.membership);
        std::filesystem::remove(settings.keytab);
        if (isEmpty) WriteFile(settings.keytab, "");
        TakeLogLines();
        EXPECT_EQ(Leave(), 0U);
        EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("this host has no key to show that the account is its own")));
        EXPECT_TRUE(Account());
        WriteFile(settings.membership, membership);
        std::filesystem::permissions(settings.membership, std::filesystem::perms(0600));
    }
}

// The first one has thrown the key away, by which another host's account is told from this one's.
TEST_F(Leaves, RepeatedLeaveDoesNotTakeAnothersAccount) {
    for (const bool isSavable : {true, false}) {
        corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"Another-1\"")}}});
        logIns.refusesDisable = true;
        if (!isSavable) std::filesystem::create_directory(settings.membership + ".new");
        EXPECT_EQ(Leave(), kStatusDiskFull);
        EXPECT_TRUE(Account());
        EXPECT_TRUE(std::filesystem::exists(settings.membership));
        EXPECT_EQ(std::filesystem::exists(settings.keytab), !isSavable) << "it is needed again where that is not noted";
        std::filesystem::remove(settings.membership + ".new");
        logIns.refusesDisable = false;
        EXPECT_EQ(Leave(), 0U);
        EXPECT_TRUE(Account());
        EXPECT_FALSE(HasTraces());
        EXPECT_EQ(Join(), 0U);
    }
}

TEST_F(Leaves, RefusalOfTheKeyCountsMoreThanTheIgnoranceOfTheNextController) {
    KeyCentre keys{"CORP.TEST"};
    TestController second(corp.entries, keys, {.host = "dc2.corp.test"},
                          {"127.0.0.2", corp.controller.LdapPort(), corp.controller.KerberosPort()});
    corp.names->AddAddress("dc2.corp.test", "127.0.0.2");
    settings.avoidance = std::chrono::seconds(60);
    TheHost().SetPreferredControllers({"dc1.corp.test", "dc2.corp.test"});
    corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"Another-1\"")}}});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_EQ(keys.requests, 1) << "of an account that it does not know";
    EXPECT_TRUE(Account());
    settings.avoidance = std::chrono::seconds(0);
    for (const char* name : {"dc1.corp.test", "dc2.corp.test"}) AvoidController(settings, name);  // for other tests
}

// It has not heard of the key yet, or lies.
TEST_F(Leaves, OneControllerThatRefusesTheKeyIsNotBelieved) {
    KeyCentre keys{"CORP.TEST"};
    keys.SetPassword("admin1", "Secret-1", "CORP.TESTadmin1");
    keys.SetPassword("NODE01$", "of the join before", "salt");
    TestController second(corp.entries, keys, {.host = "dc2.corp.test"},
                          {"127.0.0.2", corp.controller.LdapPort(), corp.controller.KerberosPort()});
    corp.names->AddAddress("dc2.corp.test", "127.0.0.2");
    settings.avoidance = std::chrono::seconds(60);
    TheHost().SetPreferredControllers({"dc2.corp.test", "dc1.corp.test"});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_THAT(second.Requests(), ::testing::Contains(std::string("delete ") + kAccount));
    EXPECT_FALSE(Account());
    settings.avoidance = std::chrono::seconds(0);
    AvoidController(settings, "dc2.corp.test");  // for other tests
}

// It has not heard yet of the host that has taken the account over.
TEST_F(Leaves, ControllerThatStillTakesTheKeyIsNotBelievedOnAnotherVersionOfIt) {
    KeyCentre keys{"CORP.TEST"};
    keys.SetPassword("admin1", "Secret-1", "CORP.TESTadmin1");
    keys.SetPassword("NODE01$", "of another host", "salt");
    TestController second(corp.entries, keys, {.host = "dc2.corp.test"},
                          {"127.0.0.2", corp.controller.LdapPort(), corp.controller.KerberosPort()});
    corp.names->AddAddress("dc2.corp.test", "127.0.0.2");
    settings.avoidance = std::chrono::seconds(60);
    TheHost().SetPreferredControllers({"dc2.corp.test", "dc1.corp.test"});
    corp.entries.Put(kAccount, {{"msDS-KeyVersionNumber", {"7"}}});
    const int before = corp.keys.logOns;
    EXPECT_EQ(Leave(), 0U);
    EXPECT_EQ(corp.keys.logOns, before + 1);
    EXPECT_TRUE(Account());
    EXPECT_FALSE(HasTraces());
    settings.avoidance = std::chrono::seconds(0);
    AvoidController(settings, "dc2.corp.test");  // for other tests
}

TEST_F(Leaves, KeysOfAKindThatNoJoinMakesAreNone) {
    std::filesystem::remove(settings.keytab);
    const auto made = testing::RunProgram(
        "/usr/bin/ktutil", {.input = "addent -password -p NODE01$@CORP.TEST -k 1 -e arcfour-hmac\nold\nwkt " +
                                     settings.keytab + "\nquit\n"});
    ASSERT_EQ(made.exitStatus, 0) << made.errors;
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account()) << "known by its SID";
}

TEST_F(Leaves, DisabledAccountIsThisHostsAllTheSame) {
    corp.keys.Refuse("NODE01$", KRB5KDC_ERR_CLIENT_REVOKED);
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
}

TEST_F(Leaves, AccountThatTheKeyCentreDoesNotKnowAnyMoreIsNoSignOfAnotherHost) {
    corp.keys.Refuse("NODE01$", KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN);
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
}

TEST_F(Leaves, ControllerThatFallsSilentKeepsTheHostJoined) {
    settings.leaveBudget = std::chrono::milliseconds(600);
    corp.controller.SetBehave([this](const std::string& operation, const std::string& name) {
        if (operation == "search" && name == corp.base) corp.controller.hangUpsOfKerberos = 1'000'000;
        return Behaviour::Answers;
    });
    EXPECT_EQ(Leave(), kStatusNoSuchDomain);
    EXPECT_TRUE(Account());
    EXPECT_TRUE(HasTraces());
}

TEST_F(Leaves, AccountIsKnownByItsKeyWhereItsSidWasNotRecorded) {
    ForgetSid();
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
}

TEST_F(Leaves, OtherFaultsKeepTheHostJoined) {
    Refuse("delete", {53});
    EXPECT_EQ(Leave(), kStatusInternalError);
    EXPECT_TRUE(HasTraces());
}

}  // namespace
}  // namespace nimbrel::ad::test
