// Joins against a small domain: what they leave in the domain and on the host, and what a failure takes back.

#include <gmock/gmock.h>

#include <atomic>

#include "joining_host.h"
#include "keytab.h"
#include "log_lines.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class Joins : public JoiningHost {};

TEST_F(Joins, MakeTheAccountTheKeysAndTheMembership) {
    EXPECT_EQ(Join(), 0U);
    const auto account = Account();
    ASSERT_TRUE(account);
    EXPECT_EQ(account->name, kAccount);
    EXPECT_EQ(account->Text("useraccountcontrol"), "4096");
    EXPECT_EQ(account->Text("dnshostname"), "node01.corp.test");
    EXPECT_EQ(account->Text("msds-supportedencryptiontypes"), "24");
    EXPECT_EQ(account->Text("operatingsystem"), "Linux");
    EXPECT_THAT(account->attributes.at("serviceprincipalname"),
                ElementsAre("HOST/NODE01", "HOST/node01.corp.test", "RestrictedKrbHost/NODE01",
                            "RestrictedKrbHost/node01.corp.test"));
    ASSERT_TRUE(logIns.enabled);
    EXPECT_EQ(logIns.enabled->netbiosName, "CORP");
    EXPECT_EQ(logIns.enabled->hostName, "node01.corp.test");
    EXPECT_EQ(TheHost().MachineAccountDN(), kAccount);
    EXPECT_THAT(ReadFile(settings.membership), HasSubstr("S-1-5-21-1-2-3"));
    EXPECT_EQ(ModeOf(settings.keytab), 0600U);
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
}

TEST_F(Joins, PutTheAccountIntoTheUnit) {
    EXPECT_EQ(Join("Hosts"), 0U);
    EXPECT_EQ(Account()->name, "CN=NODE01,OU=Hosts,DC=corp,DC=test");
}

TEST_F(Joins, UnitThatIsNotThereIsToldAndNothingIsMade) {
    EXPECT_EQ(Join("Nowhere"), kStatusFileNotFound);
    EXPECT_FALSE(Account());
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, TellTheLogInsOfTrustedForests) {
    corp.AddTrust("two-way.test", "TWOWAY", 3);
    corp.AddTrust("outbound.test", "OUTBOUND", 2);
    corp.AddTrust("inbound.test", "INBOUND", 1);
    corp.AddTrust("realm.test", "", 3, 3);
    corp.AddTrust("OLD", "OLD", 3, 1);
    EXPECT_EQ(Join(), 0U);
    EXPECT_THAT(logIns.enabled->trustedForests, UnorderedElementsAre("two-way.test", "outbound.test"));
}

TEST_F(Joins, TakeOverAnAccountThatIsThere) {
    MakeAccount({{"userAccountControl", {"4130"}},  // disabled, no password needed
                 {"servicePrincipalName", {"host/node01", "HTTP/node01"}},
                 {"dNSHostName", {"old.corp.test"}}});
    EXPECT_EQ(Join(), 0U);
    const auto account = Account();
    EXPECT_EQ(account->Text("useraccountcontrol"), "4096");
    EXPECT_EQ(account->Text("dnshostname"), "node01.corp.test");
    EXPECT_THAT(account->attributes.at("serviceprincipalname"),
                ElementsAre("host/node01", "HTTP/node01", "HOST/node01.corp.test", "RestrictedKrbHost/NODE01",
                            "RestrictedKrbHost/node01.corp.test"));
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
}

TEST_F(Joins, SecondJoinChangesNothingButTheSecret) {
    EXPECT_EQ(Join(), 0U);
    TheHost().Part(std::nullopt);
    const auto before = Account()->attributes;
    EXPECT_EQ(Join(), 0U);
    auto after = Account()->attributes;
    EXPECT_EQ(after.at("msds-keyversionnumber"), Values{"2"});
    after.at("msds-keyversionnumber") = {"1"};
    after.at("pwdlastset") = before.at("pwdlastset");  // the secret's own, by the second
    EXPECT_EQ(after, before);
}

TEST_F(Joins, UserWhoMayOnlyResetDoesWhatIsNeeded) {
    MakeAccount();
    Refuse("modify", {kInsufficientAccess}, 1);
    EXPECT_EQ(Join(), 0U);
    EXPECT_EQ(Account()->Text("dnshostname"), "node01.corp.test");
    EXPECT_EQ(Account()->Text("operatingsystem"), "") << "left out";
}

TEST_F(Joins, UserWhoMayNotEvenThatIsRefused) {
    MakeAccount();
    Refuse("modify", {kInsufficientAccess});
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_EQ(Account()->Text("dnshostname"), "");
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, AccountThatNeedsNothingIsOnlyReset) {
    EXPECT_EQ(Join(), 0U);
    TheHost().Part(std::nullopt);
    corp.entries.Put(kAccount, {{"msDS-SupportedEncryptionTypes", {"31"}}});
    Refuse("modify", {kInsufficientAccess}, 1);
    EXPECT_EQ(Join(), 0U);
    EXPECT_EQ(Account()->Text("msds-supportedencryptiontypes"), "31") << "may not be written, and need not be";
}

TEST_F(Joins, AccountOfAnotherKindIsNotTouched) {
    const Values computer = {"top", "computer"};
    for (const auto& [classes, control] : std::map<Values, std::string>{{{"user"}, "512"}, {computer, "532480"}}) {
        MakeAccount({{"objectClass", classes}, {"userAccountControl", {control}}});
        const auto before = Account()->attributes;
        EXPECT_EQ(Join(), kStatusAccountExists);
        EXPECT_EQ(Account()->attributes, before);
        EXPECT_FALSE(HasTraces());
    }
}

TEST_F(Joins, RefusalsOfTheLogInAreToldApart) {
    EXPECT_EQ(Join("", "wrong"), kStatusLogonFailure);
    EXPECT_EQ(Join("", "Secret-1", "nobody"), kStatusLogonFailure);
    EXPECT_EQ(Join("", "Secret-1", "OTHER\\admin1"), kStatusLogonFailure);
    EXPECT_EQ(Join("", "Secret-1", "a\nb"), kStatusLogonFailure);
    const struct {
        krb5_error_code refusal;
        std::uint32_t status;
    } kRows[] = {
        {KRB5KDC_ERR_CLIENT_REVOKED, kStatusAccountDisabled}, {KRB5KDC_ERR_KEY_EXP, kStatusPasswordMustChange},
        {KRB5KDC_ERR_NAME_EXP, kStatusAccountExpired},        {KRB5KRB_AP_ERR_SKEW, kStatusTimeSkew},
        {KRB5KDC_ERR_POLICY, kStatusAccountDisabled},         {KRB5KRB_ERR_GENERIC, kStatusInternalError},
    };
    for (const auto& row : kRows) {
        corp.keys.Refuse("admin1", row.refusal);
        EXPECT_EQ(Join(), row.status) << row.refusal;
    }
    EXPECT_FALSE(Account());
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, UserOfAnotherRealmIsSentThere) {
    corp.keys.SendElsewhere("alice@corp.example", "CORP.EXAMPLE");
    EXPECT_EQ(Join("", "Secret-1", "alice@corp.example"), kStatusNoSuchDomain) << "which nobody knows";
    EXPECT_EQ(Join("", "Secret-1", "corp.example\\alice"), kStatusNoSuchDomain);
}

TEST_F(Joins, UserIsNamedInEveryWay) {
    for (const char* user : {"admin1", "ADMIN1", "admin1@corp.test", "CORP\\admin1", "corp.test\\admin1"}) {
        EXPECT_EQ(Join("", "Secret-1", user), 0U) << user;
        TheHost().Part(std::nullopt);
    }
}

TEST_F(Joins, ClockThatIsOffIsToldBeforeThePasswordIsUsed) {
    corp.controller.clockOffset = -301;
    // Some seconds may pass until they are compared.
    EXPECT_THAT(JoinText(),
                MatchesRegex("This host's clock and that of 'dc1.corp.test' are -3[0-5][0-9] seconds apart"));
    EXPECT_EQ(corp.keys.requests, 0);
}

TEST_F(Joins, RefusedCreationLeavesNothing) {
    const struct {
        Result result;
        std::uint32_t status;
    } kRows[] = {
        {{kInsufficientAccess}, kStatusAccessDenied},
        {{53, "0000216D: SvcErr: DSID-031A11C4, problem 5003"}, kStatusQuotaExceeded},
        {{53, "0000052D: SvcErr: DSID-031A124C, problem 5003"}, kStatusPasswordRestriction},
        {{53, "00002077: SvcErr"}, kStatusInternalError},
        {{68}, kStatusAccountExists},
        {{34}, kStatusInvalidUnitName},
        {{64}, kStatusInvalidUnitName},
        {{49}, kStatusLogonFailure},
        {{51}, kStatusNoSuchDomain},
        {{52}, kStatusNoSuchDomain},
    };
    for (const auto& row : kRows) {
        Refuse("add", row.result);
        EXPECT_EQ(Join(), row.status) << row.result.code << " " << row.result.diagnostic;
        EXPECT_FALSE(Account());
        EXPECT_FALSE(HasTraces());
    }
}

TEST_F(Joins, RefusedCreationNeedsNoProofOfWhoseAccountItIs) {
    std::optional<int> before;
    corp.controller.SetRefuse([&](const std::string& operation, const std::string&) {
        if (operation != "add") return std::optional<Result>();
        before = corp.keys.requests;
        corp.controller.hangUpsOfKerberos = 1'000'000;
        return std::optional(Result{kInsufficientAccess});
    });
    TakeLogLines();
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_EQ(corp.keys.requests, before);
    EXPECT_EQ(corp.controller.hangUpsOfKerberos, 1'000'000);
    EXPECT_THAT(TakeLogLines(), ::testing::IsEmpty());
}

TEST_F(Joins, RefusalKeepsTheControllersWords) {
    Refuse("add", {53, "00002077: SvcErr: problem 5003 (WILL_NOT_PERFORM)"});
    EXPECT_EQ(JoinText(),
              "Unable to create 'CN=NODE01,CN=Computers,DC=corp,DC=test': Server is unwilling to perform "
              "(00002077: SvcErr: problem 5003 (WILL_NOT_PERFORM))");
}

TEST_F(Joins, AccountMadeWithoutAnAnswerIsTakenBack) {
    Behave("add", Behaviour::HangsUp, 1);
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
    EXPECT_FALSE(Account()) << "made, and deleted on another connection";
    EXPECT_FALSE(HasTraces());
    const auto requests = corp.controller.Requests();
    EXPECT_EQ(std::count(requests.begin(), requests.end(), std::string("delete ") + kAccount), 1);
}

// The container may hold another object of that name, which no search by account name finds.
TEST_F(Joins, ObjectOfAnotherStaysWhateverBecomesOfTheCreation) {
    const std::map<std::string, Values> legacy = {
        {"objectClass", {"top", "user"}}, {"sAMAccountName", {"legacy"}}, {"userAccountControl", {"512"}}};
    corp.entries.Put(kAccount, legacy);
    EXPECT_EQ(Join(), kStatusAccountExists);
    Behave("add", Behaviour::HangsUp, 1);
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
    Behave("add", Behaviour::Answers);
    for (const int busy : {51, 52}) {
        Refuse("add", {busy}, 1);
        EXPECT_EQ(Join(), kStatusNoSuchDomain) << busy;
    }
    EXPECT_TRUE(corp.entries.Account("legacy"));
    const auto requests = corp.controller.Requests();
    EXPECT_EQ(std::count(requests.begin(), requests.end(), std::string("delete ") + kAccount), 0);
}

TEST_F(Joins, ControllerThatFallsSilentIsGivenUp) {
    settings.joinBudget = std::chrono::milliseconds(600);
    settings.controllerBudget = std::chrono::milliseconds(100);
    Behave("add", Behaviour::KeepsQuiet, 1);
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
    EXPECT_FALSE(Account());
}

TEST_F(Joins, LogInsThatRefuseEndTheJoin) {
    logIns.refuses = true;
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_FALSE(Account());
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, FailedJoinKeepsTheSmartCardServicesThatWereSetBefore) {
    TheHost().SetSmartCardServices({"sshd"});
    logIns.onEnable = [this] { std::filesystem::create_directories(settings.membership + ".new/in the way"); };
    EXPECT_NE(Join(), 0U);
    EXPECT_FALSE(HasTraces());
    EXPECT_THAT(TheHost().SmartCardServices(), ElementsAre("sshd"));
}

TEST_F(Joins, FailedJoinRestoresTheKeytabWithItsMode) {
    {
        KeytabChange web(settings.keytab);
        web.SetKeys({"WEB", "other.test", 1}, kit::Secret("secret"));
        web.Commit();
    }
    std::filesystem::permissions(settings.keytab, std::filesystem::perms(0640));
    const std::string before = ReadFile(settings.keytab);
    logIns.refuses = true;
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_EQ(ReadFile(settings.keytab), before);
    EXPECT_EQ(ModeOf(settings.keytab), 0640U);
}

TEST_F(Joins, FailedJoinRestoresTheAccountThatWasThere) {
    MakeAccount({{"servicePrincipalName", {"HTTP/node01"}}, {"userAccountControl", {"4098"}}});
    auto before = Account()->attributes;
    logIns.refuses = true;
    EXPECT_EQ(Join(), kStatusAccessDenied);
    auto after = Account()->attributes;
    for (const char* name : {"msds-keyversionnumber", "pwdlastset"}) {
        EXPECT_EQ(after.erase(name), 1U) << "the old secret is nobody's to know";
    }
    EXPECT_EQ(after, before);
}

TEST_F(Joins, WhatMayNotBeRestoredIsLeft) {
    MakeAccount();
    logIns.refuses = true;
    corp.controller.SetRefuse([changes = 0](const std::string& operation, const std::string&) mutable {
        return operation == "modify" && ++changes > 2 ? std::optional(Result{kInsufficientAccess}) : std::nullopt;
    });
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_EQ(Account()->Text("dnshostname"), "node01.corp.test");
}

TEST_F(Joins, WhatCannotBeRestoredIsTold) {
    MakeAccount();
    logIns.refuses = true;
    corp.controller.SetRefuse([changes = 0](const std::string& operation, const std::string&) mutable {
        return operation == "modify" && ++changes > 2 ? std::optional(Result{53}) : std::nullopt;
    });
    TakeLogLines();
    EXPECT_EQ(JoinText(), "refused");
    EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("leaves the machine account behind: Unable to change")));
}

TEST_F(Joins, TakingBackGoesOnUntilTheControllerAnswers) {
    logIns.refuses = true;
    corp.controller.SetBehave([count = 0](const std::string& operation, const std::string&) mutable {
        return operation == "delete" && count++ < 2 ? Behaviour::HangsUp : Behaviour::Answers;
    });
    EXPECT_EQ(Join(), kStatusAccessDenied);
    EXPECT_FALSE(Account());
}

TEST_F(Joins, TakingBackThatIsRefusedIsTold) {
    logIns.refuses = true;
    Refuse("delete", {kInsufficientAccess});
    TakeLogLines();
    EXPECT_EQ(JoinText(), "refused") << "the cause, not what came after it";
    EXPECT_THAT(TakeLogLines(), ElementsAre(StartsWith("A failed domain join leaves the machine account behind: Unable "
                                                       "to delete 'CN=NODE01")));
    EXPECT_TRUE(Account());
    EXPECT_FALSE(HasTraces());
}

// Another controller may not have heard of the account yet, and "no such object" says nothing there.
TEST_F(Joins, TakingBackIsDoneWhereTheJoinWasOrTold) {
    Entries lagging;
    for (const auto& name : corp.entries.Names()) lagging.Put(name, corp.entries.Find(name)->attributes);
    corp.names->AddAddress("dc2.corp.test", "127.0.0.2");
    TestController dc2(lagging, corp.keys, ControllerFacts{"dc2.corp.test", "corp.test", "CORP"},
                       ControllerAddress{"127.0.0.2", corp.controller.LdapPort(), corp.controller.KerberosPort()});
    corp.names->AddService("_ldap._tcp.dc._msdcs.corp.test", "dc2.corp.test", {.priority = 10});
    settings.rollBackBudget = std::chrono::milliseconds(600);
    corp.controller.SetBehave([isGone = false](const std::string& operation, const std::string&) mutable {
        if (isGone) return Behaviour::Vanishes;
        isGone = operation == "add";
        return isGone ? Behaviour::HangsUp : Behaviour::Answers;
    });
    TakeLogLines();
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
    EXPECT_TRUE(Account());
    EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("leaves the machine account behind: ")));
    EXPECT_THAT(dc2.Requests(), ::testing::IsEmpty());
}

TEST_F(Joins, TakingBackEndsWithItsBudget) {
    settings.rollBackBudget = std::chrono::milliseconds(300);
    logIns.refuses = true;
    Refuse("delete", {51});  // busy
    TakeLogLines();
    EXPECT_EQ(JoinText(), "refused");
    EXPECT_THAT(TakeLogLines(), ElementsAre(HasSubstr("the machine account behind")));
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, TicketThatTheDomainDoesNotGiveIsTold) {
    corp.keys.Refuse("ldap/dc1.corp.test/corp.test", KRB5KDC_ERR_POLICY);
    EXPECT_EQ(Join(), kStatusAccountDisabled);
    corp.keys.Refuse("ldap/dc1.corp.test/corp.test", KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN);
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
}

TEST_F(Joins, KeyCentreThatHangsUpIsAskedAgain) {
    corp.controller.hangUpsOfKerberos = 2;
    EXPECT_EQ(Join(), 0U);
    EXPECT_EQ(corp.controller.hangUpsOfKerberos, 0);
}

TEST_F(Joins, KeyCentreThatAlwaysHangsUpIsGivenUp) {
    settings.joinBudget = std::chrono::milliseconds(800);
    corp.controller.hangUpsOfKerberos = 1'000'000;
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
}

TEST_F(Joins, ConnectionWithoutSealingIsRefused) {
    corp.controller.layers = 2;
    EXPECT_EQ(JoinText(), "The controller offers no sealed connection");
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, ControllerThatTakesNoTicketRefusesTheLogIn) {
    corp.controller.takesNoTickets = true;
    EXPECT_EQ(Join(), kStatusLogonFailure);
}

TEST_F(Joins, ControllerThatTakesOnlyShortMessagesGetsShortOnes) {
    corp.controller.maximumMessage = 256;
    EXPECT_EQ(Join(), 0U);
    EXPECT_EQ(Account()->attributes.at("serviceprincipalname").size(), 4U);
}

TEST_F(Joins, ControllerThatTakesLongMessagesGetsEachInOnePiece) {
    corp.controller.maximumMessage = 0x10000;
    EXPECT_EQ(Join(), 0U);
    EXPECT_GT(corp.controller.largestMessage, 400U);
}

TEST_F(Joins, MessagesInPiecesArePutTogether) {
    corp.controller.dribblesMessages = true;
    EXPECT_EQ(Join(), 0U);
}

TEST_F(Joins, DamagedMessageEndsTheSession) {
    corp.controller.damagesMessages = true;
    EXPECT_THAT(JoinText(), HasSubstr("The controller's side of the sealed connection is not valid: its seal"));
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, MessageWithoutASensibleLengthEndsTheSession) {
    for (const long length : {0L, 0x1000000L}) {
        corp.controller.announcedLength = length;
        EXPECT_THAT(JoinText(), HasSubstr("The controller's message has no sensible length"));
    }
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, OtherFaultsOfAResetAreTold) {
    MakeAccount();
    Refuse("modify", {53});
    EXPECT_EQ(Join(), kStatusInternalError);
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, PasswordThatIsNoTextIsRefused) { EXPECT_EQ(Join("", "\xff\xfe"), kStatusLogonFailure); }

TEST_F(Joins, DomainThatDoesNotTellItsNamesIsNotJoined) {
    corp.entries.Delete("CN=CORP,CN=Partitions,CN=Configuration,DC=corp,DC=test", false);
    EXPECT_EQ(JoinText(), "The controller does not tell about its domain");
    EXPECT_FALSE(HasTraces());
}

TEST_F(Joins, DomainWhoseNamesCannotBeKeptIsNotJoined) {
    corp.entries.Put("CN=CORP,CN=Partitions,CN=Configuration,DC=corp,DC=test", {{"nETBIOSName", {"CO\nRP"}}});
    EXPECT_EQ(Join(), kStatusInternalError);
    EXPECT_FALSE(Account());
    EXPECT_FALSE(HasTraces());
}

// --- By a machine account ---

class MachineJoins : public JoiningHost {
 protected:
    MachineJoins() {
        MakeAccount({{"msDS-KeyVersionNumber", {"2"}}});
        corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"OneTime-1\"")}}});
    }

    std::uint32_t JoinAsMachine(const std::string& sid = "", const std::string& netbiosName = "",
                                std::string_view secret = "OneTime-1", const std::string& account = "NODE01$") {
        return StatusOf([&] {
            TheHost().JoinWithMachineAccount({"node01.corp.test", "corp.test", netbiosName, sid, account, secret});
        });
    }
};

TEST_F(MachineJoins, ChangeTheSecretAndCompleteTheAccount) {
    EXPECT_EQ(JoinAsMachine("S-1-5-21-1-2-3", "corp"), 0U);
    EXPECT_EQ(Account()->Text("dnshostname"), "node01.corp.test");
    EXPECT_EQ(Account()->Text("msds-keyversionnumber"), "4");
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    TheHost().Part(std::nullopt);
    EXPECT_EQ(JoinAsMachine(), kStatusLogonFailure) << "the secret was good once";
}

TEST_F(MachineJoins, OtherDomainIsRefused) {
    EXPECT_EQ(JoinAsMachine("S-1-5-21-9-9-9"), kStatusDomainInconsistent);
    EXPECT_EQ(JoinAsMachine("", "OTHER"), kStatusDomainInconsistent);
    EXPECT_EQ(Account()->Text("msds-keyversionnumber"), "3");
    EXPECT_FALSE(HasTraces());
}

TEST_F(MachineJoins, UnknownAccountOrWrongSecretIsRefused) {
    EXPECT_EQ(JoinAsMachine("", "", "wrong"), kStatusLogonFailure);
    EXPECT_EQ(JoinAsMachine("", "", "OneTime-1", "NODE02"), kStatusLogonFailure);
    corp.keys.SetPassword("NODE03$", "OneTime-1", "salt");
    EXPECT_EQ(JoinAsMachine("", "", "OneTime-1", "NODE03"), kStatusLogonFailure) << "which no object stands for";
}

TEST_F(MachineJoins, WhatTheHostMayNotSetIsLeftToWhoeverMadeTheAccount) {
    for (const int refusal : {kInsufficientAccess, 19}) {
        corp.controller.SetRefuse([=](const std::string& operation, const std::string&) {
            return operation == "modify" ? std::optional(Result{refusal}) : std::nullopt;
        });
        EXPECT_EQ(JoinAsMachine(), refusal == 19 ? kStatusInternalError : kStatusAccessDenied)
            << "the secret has to be changed";
        corp.controller.SetRefuse([refusal, changes = 0](const std::string& operation, const std::string&) mutable {
            return operation == "modify" && ++changes == 2 ? std::optional(Result{refusal}) : std::nullopt;
        });
        EXPECT_EQ(JoinAsMachine(), 0U) << refusal;
        EXPECT_EQ(Account()->Text("dnshostname"), "");
        TheHost().Part(std::nullopt);
        corp.controller.SetRefuse({});
        corp.entries.Modify(kAccount, {{2, "unicodePwd", {Utf16("\"OneTime-1\"")}}});
    }
}

TEST_F(MachineJoins, AnotherFaultOfCompletingEndsTheJoin) {
    corp.controller.SetRefuse([changes = 0](const std::string& operation, const std::string&) mutable {
        return operation == "modify" && ++changes == 2 ? std::optional(Result{53}) : std::nullopt;
    });
    EXPECT_EQ(JoinAsMachine(), kStatusInternalError);
    EXPECT_FALSE(HasTraces());
    EXPECT_EQ(JoinAsMachine(), 0U) << "the one-time secret is good again";
}

TEST_F(MachineJoins, RefusedChangeOfTheSecretLeavesNothingBehind) {
    Refuse("modify", {53, "0000052D: SvcErr: DSID-031A124C, problem 5003"}, 1);
    TakeLogLines();
    EXPECT_EQ(JoinAsMachine(), kStatusPasswordRestriction);
    EXPECT_THAT(TakeLogLines(), ::testing::IsEmpty());
    EXPECT_EQ(JoinAsMachine(), 0U);
}

TEST_F(MachineJoins, ChangeWithoutAnAnswerIsTakenBackWhereItWasMade) {
    for (const auto silence : {Behaviour::HangsUp, Behaviour::KeepsQuiet}) {
        settings.controllerBudget = std::chrono::milliseconds(300);
        std::atomic<int> changes = 0;
        // On a busy machine a join may end before the change.
        for (int tries = 0; tries < 10 && changes == 0; ++tries) {
            corp.controller.SetBehave([&, silence](const std::string& operation, const std::string&) {
                return operation == "modify" && changes++ == 0 ? silence : Behaviour::Answers;
            });
            TakeLogLines();
            EXPECT_EQ(JoinAsMachine(), kStatusNoSuchDomain);
        }
        EXPECT_THAT(TakeLogLines(), ::testing::IsEmpty());
        EXPECT_GT(changes, 1) << "made, and taken back";
        corp.controller.SetBehave({});
    }
    settings.controllerBudget = std::chrono::seconds(10);
    EXPECT_EQ(JoinAsMachine(), 0U) << "the one-time secret is good again";
}

TEST_F(MachineJoins, ChangeThatWasNeverMadeIsNotTakenBack) {
    Behave("modify", Behaviour::Vanishes, 1);
    TakeLogLines();
    EXPECT_EQ(JoinAsMachine(), kStatusNoSuchDomain);
    EXPECT_THAT(TakeLogLines(), ::testing::IsEmpty());
    EXPECT_EQ(JoinAsMachine(), 0U);
}

TEST_F(MachineJoins, ChangeThatWasNeverMadeIsNotTakenBackWhenTheKeyCentreWasBusy) {
    corp.controller.SetBehave([this, changes = 0](const std::string& operation, const std::string&) mutable {
        if (operation != "modify" || ++changes > 1) return Behaviour::Answers;
        corp.controller.hangUpsOfKerberos = 4;  // as often as one answer is asked for
        return Behaviour::Vanishes;
    });
    TakeLogLines();
    EXPECT_EQ(JoinAsMachine(), kStatusNoSuchDomain);
    EXPECT_EQ(corp.controller.hangUpsOfKerberos, 0);
    EXPECT_THAT(TakeLogLines(), ::testing::IsEmpty());
    EXPECT_EQ(StatusOf([&] { TheHost().Part(std::nullopt); }), kStatusNotJoined) << "nothing is left of it";
    EXPECT_EQ(JoinAsMachine(), 0U);
}

TEST_F(MachineJoins, FailedJoinMakesTheSecretGoodAgain) {
    logIns.refuses = true;
    EXPECT_EQ(JoinAsMachine(), kStatusAccessDenied);
    logIns.refuses = false;
    EXPECT_EQ(JoinAsMachine(), 0U);
}

}  // namespace
}  // namespace nimbrel::ad::test
