// The questions that a joined host asks its domain.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "files.h"
#include "joining_host.h"
#include "keytab.h"
#include "log_lines.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class Queries : public JoiningHost {
 protected:
    Queries() { EXPECT_EQ(Join(), 0U); }

    // Another secret in the domain than in the keytab.
    void ChangeSecretInTheDomain() { corp.keys.SetPassword("NODE01$", "another", "salt"); }
    std::string CanonicalName(const std::string& name) { return TheHost().CanonicalUserName(name); }
    std::uint32_t CanonicalStatus(const std::string& name) {
        return StatusOf([&] { TheHost().CanonicalUserName(name); });
    }
    std::vector<std::string> TrustedNames() {
        std::vector<std::string> names;
        for (const auto& domain : TheHost().TrustedDomains())
            names.push_back(domain.dnsName + "/" + domain.netbiosName);
        return names;
    }
};

TEST_F(Queries, TrustStateTellsWhyTheDomainRefusesTheHost) {
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    const struct {
        krb5_error_code refusal;
        std::int32_t state;
        std::uint32_t status;
    } kRows[] = {
        {KRB5KDC_ERR_PREAUTH_FAILED, kTrustStateSecretMismatch, kStatusLogonFailure},
        {KRB5KDC_ERR_KEY_EXP, kTrustStateSecretMismatch, kStatusPasswordMustChange},
        {KRB5KDC_ERR_CLIENT_REVOKED, kTrustStateAccountDisabled, kStatusAccountDisabled},
        {KRB5KDC_ERR_NAME_EXP, kTrustStateAccountDisabled, kStatusAccountExpired},
        {KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN, kTrustStateAccountMissing, kStatusNoTrustAccount},
        {KRB5KRB_AP_ERR_SKEW, kTrustStateClockOff, kStatusTimeSkew},
    };
    for (const auto& row : kRows) {
        // The session that the join's first question has left answers for a few seconds.
        settings.keytab = Folder() + "/./" + settings.keytab.substr(Folder().size() + 1);
        corp.keys.Refuse("NODE01$", row.refusal);
        TakeLogLines();
        EXPECT_EQ(TheHost().TrustState(), row.state);
        EXPECT_THAT(TakeLogLines(), ElementsAre(StartsWith("ad: status " + std::to_string(row.status) + ": ")));
        EXPECT_EQ(StatusOf([&] { TheHost().TrustedDomains(); }), row.status);
    }
}

TEST_F(Queries, SecretThatIsOutOfStepIsTold) {
    ChangeSecretInTheDomain();
    EXPECT_EQ(TheHost().TrustState(), kTrustStateSecretMismatch);
}

TEST_F(Queries, ClockThatIsOffIsTold) {
    corp.controller.clockOffset = 400;
    EXPECT_EQ(TheHost().TrustState(), kTrustStateClockOff);
    EXPECT_EQ(TheHost().TrustRelationship("other.test"), kRelationshipClockOff);
}

TEST_F(Queries, ControllerWritesNoLinesOfItsOwnIntoTheLog) {
    settings.membership = Folder() + "/./membership";  // a session of its own
    Refuse("ping",
           {1, "x)\nNov 21 19:00:00 host sshd[1]: Accepted password for root \x1b[31m" + std::string(5000, 'z')});
    TakeLogLines();
    EXPECT_EQ(TheHost().TrustState(), kTrustStateNoController);
    const auto lines = TakeLogLines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines.front(), AllOf(HasSubstr("(x)?Nov 21 19:00:00"), HasSubstr("root ?[31mz")));
    EXPECT_LT(lines.front().size(), 500U);
}

TEST_F(Queries, MachineAccountIsWhereTheTrustStateHasFoundIt) {
    const auto moved = "CN=NODE01,OU=Hosts,DC=corp,DC=test";
    corp.entries.Move(kAccount, moved);
    EXPECT_EQ(TheHost().MachineAccountDN(), kAccount);
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    EXPECT_EQ(TheHost().MachineAccountDN(), moved);
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    corp.entries.Move(moved, kAccount);
    settings.membership = Folder() + "/./membership";  // a session of its own, which others open
    TheHost().TrustedDomains();
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    EXPECT_EQ(TheHost().MachineAccountDN(), kAccount);
    EXPECT_EQ(ModeOf(settings.membership), 0600U);
    EXPECT_EQ(Leave(), 0U);
    EXPECT_FALSE(Account());
}

TEST_F(Queries, MembershipIsNotWrittenAgainWhereTheAccountIsStillThere) {
    const auto fileNumber = [this] {
        struct stat status = {};
        EXPECT_EQ(stat(settings.membership.c_str(), &status), 0);
        return status.st_ino;
    };
    const auto written = fileNumber();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
        EXPECT_EQ(fileNumber(), written);
    }
}

// A configuration is asked for with all that this host knows by itself, above all while the domain is away.
TEST_F(Queries, MachineAccountIsNamedWithoutTheDomain) {
    settings.membership = Folder() + "/./membership";  // a session of its own
    Behave("ping", Behaviour::KeepsQuiet);
    const auto requests = corp.controller.Requests().size();
    TakeLogLines();
    EXPECT_EQ(TheHost().MachineAccountDN(), kAccount);
    EXPECT_EQ(corp.controller.Requests().size(), requests);
    EXPECT_THAT(TakeLogLines(), IsEmpty());
}

TEST_F(Queries, TrustStateIsGoodWhereverTheAccountCannotBeFoundOrNoted) {
    auto newSession = [this, folder = Folder() + "/"]() mutable {
        settings.membership = (folder += "./") + "membership";
    };
    corp.entries.Move(kAccount, "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    const auto budget = settings.controllerBudget;
    for (const auto& behaviour : {Behaviour::KeepsQuiet, Behaviour::HangsUp}) {
        newSession();
        TheHost().TrustedDomains();  // with all the time it takes
        settings.controllerBudget = behaviour == Behaviour::KeepsQuiet ? std::chrono::milliseconds(300) : budget;
        corp.controller.SetBehave([this, behaviour](const std::string&, const std::string& name) {
            return name == corp.base ? behaviour : Behaviour::Answers;
        });
        EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    }
    settings.controllerBudget = budget;
    corp.controller.SetBehave({});
    newSession();
    corp.controller.SetRefuse([this](const std::string&, const std::string& name) {
        return name == corp.base ? std::optional(Result{kInsufficientAccess}) : std::nullopt;
    });
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    corp.controller.SetRefuse({});
    newSession();
    {
        const FileLock another(settings.membership + ".lock", Deadline::After(std::chrono::seconds(1)));
        EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    }
    EXPECT_EQ(TheHost().MachineAccountDN(), kAccount);
}

TEST_F(Queries, OneSessionAnswersMany) {
    TheHost().TrustedDomains();
    const int before = corp.keys.logOns;
    for (int i = 0; i < 3; ++i) TheHost().TrustedDomains();
    EXPECT_EQ(TheHost().TrustState(), kTrustStateHealthy);
    TheHost().TrustedDomains();
    EXPECT_EQ(corp.keys.logOns, before);
}

TEST_F(Queries, SessionThatTheControllerHasClosedIsReplaced) {
    TheHost().TrustedDomains();
    const int before = corp.keys.logOns;
    Behave("search", Behaviour::HangsUp, 1);
    EXPECT_THAT(TheHost().TrustedDomains(), IsEmpty());
    EXPECT_EQ(corp.keys.logOns, before + 1);
}

TEST_F(Queries, RefusalOnAKeptSessionIsNotAskedAgain) {
    TheHost().TrustedDomains();
    const int before = corp.keys.logOns;
    corp.controller.SetRefuse([](const std::string&, const std::string& name) {
        return name == "CN=System,DC=corp,DC=test" ? std::optional(Result{kInsufficientAccess}) : std::nullopt;
    });
    EXPECT_EQ(StatusOf([&] { TheHost().TrustedDomains(); }), kStatusAccessDenied);
    EXPECT_EQ(corp.keys.logOns, before);
    EXPECT_EQ(TheHost().TrustRelationship("other.test"), kRelationshipUnreadable);
    EXPECT_EQ(corp.keys.logOns, before + 1) << "the refused session is not used again";
}

TEST_F(Queries, RelationshipsNameDirectionAndKind) {
    const struct {
        const char* partner;
        int direction;
        int type;
        int attributes;
        std::int32_t relationship;
    } kRows[] = {
        {"out.test", 2, 2, 0, kRelationshipOutbound},
        {"in.test", 1, 2, 0, kRelationshipInbound},
        {"both.test", 3, 2, 0, kRelationshipBidirectional},
        {"forest.test", 3, 2, 8, kRelationshipBidirectional + kRelationshipKindForest},
        {"child.corp.test", 3, 2, 32, kRelationshipBidirectional + kRelationshipKindWithinForest},
        {"realm.test", 2, 3, 0, kRelationshipOutbound + kRelationshipKindRealm},
        {"disabled.test", 0, 2, 0, kRelationshipUnknownDomain},
    };
    for (const auto& row : kRows) corp.AddTrust(row.partner, "", row.direction, row.type, row.attributes);
    for (const auto& row : kRows) EXPECT_EQ(TheHost().TrustRelationship(row.partner), row.relationship) << row.partner;
    EXPECT_EQ(TheHost().TrustRelationship("OUT.TEST."), kRelationshipOutbound);
    EXPECT_EQ(TheHost().TrustRelationship("elsewhere.test"), kRelationshipUnknownDomain);
}

TEST_F(Queries, TrustedDomainsAreThoseWhoseUsersMayComeIn) {
    corp.AddTrust("Out.Test", "OUT", 2);
    corp.AddTrust("in.test", "IN", 1);
    corp.AddTrust("", "NAMELESS", 3);
    const std::string partitions = ",CN=Partitions,CN=Configuration,DC=corp,DC=test";
    corp.entries.Put("CN=CHILD" + partitions, {{"objectClass", {"crossRef"}},
                                               {"nETBIOSName", {"CHILD"}},
                                               {"dnsRoot", {"child.corp.test"}},
                                               {"systemFlags", {"3"}}});
    corp.entries.Put(
        "CN=DomainDnsZones" + partitions,
        {{"objectClass", {"crossRef"}}, {"dnsRoot", {"DomainDnsZones.corp.test"}}, {"systemFlags", {"5"}}});
    EXPECT_THAT(TrustedNames(), UnorderedElementsAre("out.test/OUT", "child.corp.test/CHILD"));
    EXPECT_EQ(TheHost().TrustRelationship("CHILD"), kRelationshipBidirectional + kRelationshipKindWithinForest);
    EXPECT_EQ(TheHost().HostPrincipal("out.test"), "host/node01.corp.test@CORP.TEST");
    EXPECT_EQ(StatusOf([&] { TheHost().HostPrincipal("other.test"); }), kStatusNoSuchDomain);
}

TEST_F(Queries, ControllerIsTheFirstThatAnswers) {
    const auto second = corp.MakeController("dc2.corp.test", "127.0.0.2");
    EXPECT_EQ(TheHost().AnyController("", ""), "dc1.corp.test");
    EXPECT_EQ(TheHost().AnyController("dc2.corp.test", ""), "dc2.corp.test");
    EXPECT_EQ(TheHost().AnyController("dc9.corp.test", "corp.test"), "dc2.corp.test") << "the one in use";
    TheHost().SetPreferredControllers({"dc9.corp.test", "dc1.corp.test"});
    EXPECT_EQ(TheHost().AnyController("", "CORP"), "dc1.corp.test");
    EXPECT_EQ(StatusOf([&] { TheHost().AnyController("", "other.test"); }), kStatusNoSuchDomain);
}

TEST_F(Queries, UsersOfTheOwnDomainAreSpelledAsInTheDirectory) {
    for (const char* name : {"alice", "ALICE@corp.test", "CORP\\alice", "corp.test\\aLiCe"}) {
        EXPECT_EQ(CanonicalName(name), "Alice@corp.test") << name;
    }
    EXPECT_EQ(CanonicalStatus("nobody"), kStatusNoSuchAccount);
    EXPECT_EQ(CanonicalStatus("a\nb"), kStatusInvalidAccountName);
}

TEST_F(Queries, UsersAreFoundByPrincipalNameToo) {
    corp.entries.Put("CN=Bob,CN=Users,DC=corp,DC=test", {{"objectClass", {"user"}},
                                                         {"objectCategory", {"person"}},
                                                         {"sAMAccountName", {"Bob"}},
                                                         {"userPrincipalName", {"robert@corp.test"}}});
    EXPECT_EQ(CanonicalName("robert"), "Bob@corp.test");
    corp.entries.Put("CN=Bob,CN=Users,DC=corp,DC=test", {{"userPrincipalName", {"robert@example.com"}}});
    EXPECT_EQ(CanonicalName("robert@example.com"), "Bob@corp.test");
    EXPECT_EQ(CanonicalStatus("nobody@example.com"), kStatusNoSuchAccount);
}

// Whoever has the account's name is meant, whatever others call themselves.
TEST_F(Queries, AccountNameComesBeforePrincipalNames) {
    for (const char* other : {"Aaron", "Zoe"}) {
        corp.entries.Put(std::string("CN=") + other + ",CN=Users,DC=corp,DC=test",
                         {{"objectClass", {"user"}},
                          {"objectCategory", {"person"}},
                          {"sAMAccountName", {other}},
                          {"userPrincipalName", {"alice@corp.test"}}});
    }
    EXPECT_EQ(CanonicalName("alice@corp.test"), "Alice@corp.test");
    EXPECT_EQ(CanonicalName("alice"), "Alice@corp.test");
}

// Two domains on one machine.
class TrustingQueries : public Queries {
 protected:
    static constexpr char kSecret[] = "between the two";

    TrustingQueries() {
        branch.AddUser("Carol");
        corp.keys.LetOutTo("BRANCH.TEST", kSecret);
        branch.keys.LetInFrom("CORP.TEST", kSecret);
    }

    TestDomain branch{corp, "branch.test", "BRANCH", "127.0.0.3"};
};

TEST_F(TrustingQueries, UsersOfATrustedDomainAreAskedThere) {
    corp.AddTrust("branch.test", "BRANCH", 3);
    EXPECT_EQ(CanonicalName("carol@branch.test"), "Carol@branch.test");
    EXPECT_EQ(CanonicalName("BRANCH\\CAROL"), "Carol@branch.test");
    EXPECT_EQ(CanonicalStatus("nobody@branch.test"), kStatusNoSuchAccount);
}

// It has just been promoted, and not registered its names yet.
TEST_F(Queries, ControllerOfATrustedDomainWithoutItsServiceNameIsPassedOver) {
    TestDomain twig(corp, "twig.test", "TWIG", "127.0.0.3");  // whose controllers no other test has used
    twig.AddUser("Carol");
    corp.keys.LetOutTo("TWIG.TEST", "between the two");
    twig.keys.LetInFrom("CORP.TEST", "between the two");
    corp.AddTrust("twig.test", "TWIG", 3);
    const TestController fresh(
        twig.entries, twig.keys,
        {.host = "dc0.twig.test", .domain = "twig.test", .netbiosName = "TWIG", .isMember = true},
        {"127.0.0.4", corp.controller.LdapPort(), corp.controller.KerberosPort()});
    corp.names->AddAddress("dc0.twig.test", "127.0.0.4");
    corp.names->Forget("_ldap._tcp.dc._msdcs.twig.test");
    corp.names->AddService("_ldap._tcp.dc._msdcs.twig.test", "dc0.twig.test", {.priority = 0});
    corp.names->AddService("_ldap._tcp.dc._msdcs.twig.test", "dc1.twig.test", {.priority = 10});
    settings.avoidance = std::chrono::seconds(60);
    EXPECT_EQ(CanonicalName("carol@twig.test"), "Carol@twig.test");
}

// The ordinary trust of old; none of the other domain's controllers is at fault.
TEST_F(TrustingQueries, TrustWithoutAnAesKeyIsTold) {
    corp.AddTrust("branch.test", "BRANCH", 3);
    corp.keys.Refuse("krbtgt/branch.test", KRB5KDC_ERR_ETYPE_NOSUPP);
    TakeLogLines();
    const auto before = branch.controller.Requests().size();
    try {
        TheHost().CanonicalUserName("carol@branch.test");
        ADD_FAILURE() << "found";
    } catch (const AdError& error) {
        EXPECT_EQ(error.Status(), kStatusAccountRestriction);
        EXPECT_THAT(error.what(), HasSubstr("the realm 'CORP.TEST' has no AES key for the trust"));
    }
    EXPECT_EQ(branch.controller.Requests().size(), before + 2) << "the two that find it, once";
}

TEST_F(TrustingQueries, UsersOfADomainThatLetsNobodyInAreKnownToItsKeyCentre) {
    corp.AddTrust("branch.test", "BRANCH", 2);
    EXPECT_EQ(CanonicalName("carol@branch.test"), "carol@branch.test");
    EXPECT_EQ(CanonicalStatus("nobody@branch.test"), kStatusNoSuchAccount);
    branch.keys.Refuse("Carol", KRB5KDC_ERR_CLIENT_REVOKED);
    EXPECT_EQ(CanonicalName("carol@branch.test"), "carol@branch.test") << "a locked user is a user";
    branch.keys.Refuse("Carol", KRB5KRB_AP_ERR_SKEW);
    EXPECT_EQ(CanonicalStatus("carol@branch.test"), kStatusTimeSkew) << "which tells nothing of the user";
    branch.keys.Refuse("Carol", 0);
    branch.keys.asksForNoProof = true;
    EXPECT_EQ(CanonicalName("carol@branch.test"), "carol@branch.test") << "who gets a ticket for nothing";
    EXPECT_EQ(CanonicalStatus("nobody@branch.test"), kStatusNoSuchAccount);
}

TEST_F(TrustingQueries, UsersOfADomainThatMayNotComeInAreNotAsked) {
    corp.AddTrust("branch.test", "BRANCH", 1);
    EXPECT_EQ(CanonicalStatus("carol@branch.test"), kStatusNoSuchAccount);
    EXPECT_THAT(branch.controller.Requests(), IsEmpty());
}

TEST_F(TrustingQueries, TrustedDomainWithoutAControllerIsTold) {
    corp.AddTrust("gone.test", "GONE", 3);
    EXPECT_EQ(CanonicalStatus("carol@gone.test"), kStatusNoSuchDomain);
    corp.AddTrust("branch.test", "BRANCH", 3);
    corp.names->Forget("_kerberos._tcp.branch.test");
    EXPECT_EQ(CanonicalStatus("carol@branch.test"), kStatusNoSuchDomain) << "its key centre is not found";
}

TEST_F(TrustingQueries, KeyCentresAreTriedInTurn) {
    corp.AddTrust("branch.test", "BRANCH", 3);
    for (const char* host : {"dead.branch.test", "unknown.branch.test"}) {
        corp.names->AddService("_kerberos._tcp.branch.test", host, {0, 65535, 88});
    }
    corp.names->AddAddress("dead.branch.test", "127.0.0.9");
    EXPECT_EQ(CanonicalName("carol@branch.test"), "Carol@branch.test");
    corp.names->Forget("_kerberos._tcp.branch.test");
    for (const char* host : {"dead.branch.test", "unknown.branch.test", "k3.test", "k4.test"}) {
        corp.names->AddService("_kerberos._tcp.branch.test", host);
    }
    settings.membership = Folder() + "/./membership";  // a session of its own
    EXPECT_EQ(CanonicalStatus("carol@branch.test"), kStatusNoSuchDomain);
}

}  // namespace
}  // namespace nimbrel::ad::test
