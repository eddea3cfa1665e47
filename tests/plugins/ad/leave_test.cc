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
    TakeLogLines();
    EXPECT_EQ(Leave(), 0U);
    EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("the user may not delete it, so that it is disabled")));
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
    EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("nothing shows that its key is the one of this host's keytab")));
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
    corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"Another-1\"")}}});
    logIns.refusesDisable = true;
    EXPECT_EQ(Leave(), kStatusDiskFull);
    EXPECT_TRUE(std::filesystem::exists(settings.membership));
    EXPECT_FALSE(std::filesystem::exists(settings.keytab));
    logIns.refusesDisable = false;
    EXPECT_EQ(Leave(), 0U);
    EXPECT_TRUE(Account());
    EXPECT_FALSE(HasTraces());
}

// As above, but nobody had it yet when it was disabled for want of the right to delete it.
TEST_F(Leaves, RepeatedLeaveDoesNotTakeAnAccountThatAnotherHostHasEnabledAgain) {
    Refuse("delete", {kInsufficientAccess});
    logIns.refusesDisable = true;
    EXPECT_EQ(Leave(), kStatusDiskFull);
    EXPECT_EQ(Account()->Text("useraccountcontrol"), "4098");
    corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"Another-1\"")}}, {2, "userAccountControl", {"4096"}}});
    logIns.refusesDisable = false;
    EXPECT_EQ(Leave(), 0U);
    EXPECT_EQ(Account()->Text("useraccountcontrol"), "4096");
    EXPECT_FALSE(HasTraces());
}

TEST_F(Leaves, NothingNeedsToBeNotedWhereTheAccountGoes) {
    std::filesystem::create_directory(settings.membership + ".new");
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
    EXPECT_FALSE(HasTraces());
}

// Or the next leave would go by the account's SID.
TEST_F(Leaves, KeyStaysWhereItCannotBeNotedThatItGoes) {
    corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"Another-1\"")}}});
    std::filesystem::create_directory(settings.membership + ".new");
    EXPECT_EQ(Leave(), kStatusInternalError);
    EXPECT_TRUE(std::filesystem::exists(settings.keytab));
    EXPECT_TRUE(logIns.enabled.has_value());
    std::filesystem::remove(settings.membership + ".new");
    EXPECT_EQ(Leave(), 0U);
    EXPECT_TRUE(Account());
    EXPECT_FALSE(HasTraces());
}

// --- With a second controller, that has keys of its own ---

class LeavesAtTwo : public Leaves {
 protected:
    LeavesAtTwo() {
        corp.names->AddAddress("dc2.corp.test", "127.0.0.2");
        settings.avoidance = std::chrono::seconds(60);
    }
    ~LeavesAtTwo() override {  // nobody is avoided by other tests
        settings.avoidance = std::chrono::seconds(0);
        for (const char* name : {"dc1.corp.test", "dc2.corp.test"}) AvoidController(settings, name);
    }
    void Prefer(const std::vector<std::string>& names) { TheHost().SetPreferredControllers(names); }
    void SetSecondsPassword(const std::string& password) {
        keys.SetPassword("admin1", "Secret-1", "CORP.TESTadmin1");
        keys.SetPassword("NODE01$", password, "salt");
    }

    KeyCentre keys{"CORP.TEST"};
    TestController second{corp.entries,
                          keys,
                          {.host = "dc2.corp.test"},
                          {"127.0.0.2", corp.controller.LdapPort(), corp.controller.KerberosPort()}};
};

TEST_F(LeavesAtTwo, RefusalOfTheKeyCountsMoreThanTheIgnoranceOfTheNextController) {
    Prefer({"dc1.corp.test", "dc2.corp.test"});
    corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"Another-1\"")}}});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_EQ(keys.requests, 1) << "of an account that it does not know";
    EXPECT_TRUE(Account());
}

// It has not heard of the key yet, or lies.
TEST_F(LeavesAtTwo, OneControllerThatRefusesTheKeyIsNotBelieved) {
    SetSecondsPassword("of the join before");
    Prefer({"dc2.corp.test", "dc1.corp.test"});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_THAT(second.Requests(), ::testing::Contains(std::string("delete ") + kAccount));
    EXPECT_FALSE(Account());
}

// It has not heard yet of the host that has taken the account over.
TEST_F(LeavesAtTwo, ControllerThatStillTakesTheKeyIsNotBelievedOnAnotherVersionOfIt) {
    SetSecondsPassword("of another host");
    Prefer({"dc2.corp.test", "dc1.corp.test"});
    corp.entries.Put(kAccount, {{"msDS-KeyVersionNumber", {"7"}}});
    const int before = corp.keys.logOns;
    EXPECT_EQ(Leave(), 0U);
    EXPECT_EQ(corp.keys.logOns, before + 1);
    EXPECT_TRUE(Account());
    EXPECT_FALSE(HasTraces());
}

// It keeps the secrets that it has seen, and is good for log-ons only.
TEST_F(LeavesAtTwo, ReadOnlyControllerIsAskedAfterTheOneThatTellsOfTheAccount) {
    SetSecondsPassword("of another host");
    corp.controller.SetChangePing([](std::string reply) {
        reply[5] = static_cast<char>(reply[5] & ~1);
        return reply;
    });
    Prefer({"dc1.corp.test", "dc2.corp.test"});
    corp.entries.Put(kAccount, {{"msDS-KeyVersionNumber", {"7"}}});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_THAT(second.Requests(), ::testing::Contains("bind "));
    EXPECT_TRUE(Account());
}

// --- Keys that are none, and faults ---

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

// Nobody's key is taken there, and its version tells whose it is.
TEST_F(Leaves, DisabledAccountOfAnotherHostStays) {
    corp.keys.Refuse("NODE01$", KRB5KDC_ERR_CLIENT_REVOKED);
    corp.entries.Put(kAccount, {{"msDS-KeyVersionNumber", {"7"}}});
    TakeLogLines();
    EXPECT_EQ(Leave(), 0U);
    EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("nothing shows that its key is the one")));
    EXPECT_TRUE(Account());
    EXPECT_FALSE(HasTraces());
}

// The version of another account's key tells nothing.
TEST_F(Leaves, DisabledAccountThatMayBeAnotherStays) {
    ForgetSid();
    corp.keys.Refuse("NODE01$", KRB5KDC_ERR_CLIENT_REVOKED);
    corp.entries.Put(kAccount, {{"msDS-KeyVersionNumber", {"1"}}});
    EXPECT_EQ(Leave(), 0U);
    EXPECT_TRUE(Account());
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
