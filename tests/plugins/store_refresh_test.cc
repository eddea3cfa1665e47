// Refreshing the whole cache, step by step.

#include <chrono>
#include <set>
#include <thread>

#include "authentication/exceptions.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

const char* const kLabAndSub[] = {"lab.test", "LAB", "sub.lab.test", "SUB", nullptr};
const char* const kServices[] = {"login", "sshd", nullptr};
const char* const kCorp[] = {"corp.test", "CORP", nullptr};

class StoreRefresh : public ScriptedStoreTest {
 protected:
    // A member of corp.test whose provider has an answer to everything.
    void BecomeCompleteMember() {
        BecomeMember();
        plugin->setTexts(kGetTrustedDomains, kLabAndSub);
        plugin->setTexts(kGetSmartCardEnabledServices, kServices);
        plugin->setValue(kGetDomainTrustState, 1);
        plugin->setValue(kGetDomainTrustRelationship, 3);
    }
    static bool SmartCardOn(std::vector<const char*> services) {
        return ActiveDirectoryStore::Cache().IsSmartCardAuthenticationEnabled(services.data(), services.size());
    }
    static int Relationship(const std::string& domain) {
        return ActiveDirectoryStore::Cache().GetDomainTrustRelationship(domain);
    }
    static int State() { return ActiveDirectoryStore::Cache().GetDomainTrustState(); }
    static auto Complete() { return Took(LOG_DEBUG, "AD cache updated in "); }
    static auto Partial() { return Took(LOG_WARNING, "AD cache updated partially in "); }
};

// ---------------------------------------------------------------- the whole pass

TEST_F(StoreRefresh, OfAMemberAsksEverythingInOrder) {
    BecomeCompleteMember();
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(Order(),
                ElementsAre(kGetActiveDomain, kGetPreferredDomainControllers, kGetMachineAccountDN,  // configuration
                            kGetTrustedDomains, kGetDomainTrustState,                                // trust state
                            kGetTrustedDomains,                                                      // trusted domains
                            kGetDomainTrustRelationship, kGetDomainTrustRelationship, kGetDomainTrustRelationship,
                            kGetSmartCardEnabledServices));
    EXPECT_THAT(log.Take(), ElementsAre(Complete()));
    EXPECT_EQ(State(), 1);
    for (const char* domain : {"corp.test", "lab.test", "sub.lab.test"}) EXPECT_EQ(Relationship(domain), 3) << domain;
}

TEST_F(StoreRefresh, TellsHowManyMillisecondsItTook) {
    using std::chrono::milliseconds;
    constexpr milliseconds kHeld(50);
    plugin->hold(kGetActiveDomain);
    std::thread slowProvider([&] {
        plugin->awaitCalls(kGetActiveDomain, 1);
        std::this_thread::sleep_for(kHeld);
        plugin->letGo(kGetActiveDomain);
    });
    const auto start = std::chrono::steady_clock::now();
    Patient().UpdateCache(std::nullopt);
    const auto took = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
    slowProvider.join();
    const auto records = log.Take();
    ASSERT_THAT(records, ElementsAre(Complete()));
    const milliseconds told(std::stol(records[0].text.substr(std::string("AD cache updated in ").size())));
    EXPECT_GE(told, kHeld);
    EXPECT_LE(told, took);
}

TEST_F(StoreRefresh, OfAHostThatIsNoMemberAsksForTheConfigurationOnly) {
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(Order(), ElementsAre(kGetActiveDomain, kGetPreferredDomainControllers, kGetMachineAccountDN));
    EXPECT_THAT(log.Take(), ElementsAre(Complete()));
    EXPECT_EQ(State(), 7);
}

TEST_F(StoreRefresh, MembershipIsWhatTheConfigurationStepHasJustFound) {
    plugin->setTexts(kGetActiveDomain, kCorp);
    Patient().UpdateCache(std::nullopt);
    EXPECT_EQ(plugin->calls(kGetSmartCardEnabledServices), 1);

    plugin->setTexts(kGetActiveDomain, nullptr);
    Patient().UpdateCache(std::nullopt);
    EXPECT_EQ(plugin->calls(kGetSmartCardEnabledServices), 1);
}

TEST_F(StoreRefresh, WithoutAnyOperationIsComplete) {
    for (int slot = 1; slot < kSlotCount; ++slot) plugin->setPresent(slot, false);
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(), ElementsAre(Complete()));
}

TEST_F(StoreRefresh, OfAMemberWithoutTheOptionalOperationsLacksOnlyTheSmartCardServices) {
    plugin->setTexts(kGetActiveDomain, kCorp);
    for (int slot = 1; slot < kSlotCount; ++slot) plugin->setPresent(slot, slot == kGetActiveDomain);
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(),
                ElementsAre(Error("Failed to get smart card enabled services: Exception 0x00000078: This function is "
                                  "not supported on this system."),
                            Partial()));
    EXPECT_EQ(State(), 0);
    EXPECT_EQ(Relationship("corp.test"), 0);
}

// ---------------------------------------------------------------- steps that fail

TEST_F(StoreRefresh, AFailedConfigurationOfAHostThatIsNoMemberIsPartial) {
    plugin->setStatus(kGetActiveDomain, 1355);
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(), ElementsAre(Error("Failed to get AD config: Exception 0x0000054b: The specified domain "
                                              "either does not exist or could not be contacted."),
                                        Partial()));
}

TEST_F(StoreRefresh, AFailedConfigurationOfAMemberGoesOnWithTheOldOne) {
    BecomeCompleteMember();
    plugin->setStatus(kGetMachineAccountDN, 5);
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(),
                ElementsAre(Error("Failed to get AD config: Exception 0x00000005: Access is denied."), Partial()));
    EXPECT_EQ(plugin->calls(kGetSmartCardEnabledServices), 1);
    EXPECT_EQ(Relationship("corp.test"), 3);
}

TEST_F(StoreRefresh, FailedTrustedDomainsFailTheirStepAndLeaveTheTrustStateStep) {
    BecomeCompleteMember();
    plugin->setStatus(kGetTrustedDomains, 5);
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(), ElementsAre(Warning("GetDomainTrustState: Call to GetTrustedDomains() failed: Exception "
                                                "0x00000005: Access is denied."),
                                        Error("Failed to get trusted domains: Exception 0x00000005: Access is denied."),
                                        Partial()));
    EXPECT_EQ(State(), 1);
}

TEST_F(StoreRefresh, ATimeOutCountsAsSuccess) {
    BecomeCompleteMember();
    plugin->hold(kGetActiveDomain);
    plugin->hold(kGetTrustedDomains);
    plugin->hold(kGetDomainTrustState);
    plugin->hold(kGetDomainTrustRelationship);
    Impatient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(),
                ElementsAre(Warning("GetStoreConfiguration call timedout. Returning cached value."),
                            Warning("GetTrustedDomains call timedout. Returning cached value."),
                            Warning("GetDomainTrustState call timedout. Returning cached value."),
                            Warning("GetTrustedDomains call timedout. Returning cached value."),
                            Warning("GetDomainTrustRelationship call timedout. Returning cached value for corp.test."),
                            Complete()));
    EXPECT_EQ(State(), 2);
}

TEST_F(StoreRefresh, FailedSmartCardServicesEndItAtOnceUnlessAPolicyIsGiven) {
    BecomeCompleteMember();
    plugin->setStatus(kGetSmartCardEnabledServices, 5);
    const LogRecord line = Error("Failed to get smart card enabled services: Exception 0x00000005: Access is denied.");
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(), ElementsAre(line, Partial()));
    EXPECT_FALSE(SmartCardOn({}));

    Patient().UpdateCache(true);
    EXPECT_THAT(log.Take(), ElementsAre(line, Partial()));
    EXPECT_TRUE(SmartCardOn({}));
}

// ---------------------------------------------------------------- smart cards

TEST_F(StoreRefresh, APolicyThatIsGivenIsStored) {
    Patient().UpdateCache(true);
    EXPECT_TRUE(SmartCardOn({}));
    Patient().UpdateCache(std::nullopt);
    EXPECT_TRUE(SmartCardOn({})) << "without a value it stays as it is";
    Patient().UpdateCache(false);
    EXPECT_FALSE(SmartCardOn({}));
}

TEST_F(StoreRefresh, SmartCardServicesReachTheCache) {
    BecomeCompleteMember();
    Patient().UpdateCache(true);
    EXPECT_TRUE(SmartCardOn({"sshd"}));
    EXPECT_TRUE(SmartCardOn({"login", "sshd"}));
    EXPECT_FALSE(SmartCardOn({"login", "su"}));
}

// ---------------------------------------------------------------- single steps

TEST_F(StoreRefresh, EachStepSaysWhetherItSucceeded) {
    BecomeCompleteMember();
    EXPECT_TRUE(Patient().FetchAdConfig());
    EXPECT_TRUE(Patient().FetchDomainTrustState());
    EXPECT_TRUE(Patient().FetchTrustedDomains());
    EXPECT_TRUE(Patient().FetchTrustRelationships());
    EXPECT_TRUE(Patient().FetchScEnabledSvcs());
    EXPECT_THAT(log.Take(), IsEmpty());

    plugin->setStatus(kGetActiveDomain, 5);
    plugin->setStatus(kGetTrustedDomains, 5);
    plugin->setStatus(kGetSmartCardEnabledServices, 5);
    EXPECT_FALSE(Patient().FetchAdConfig());
    EXPECT_FALSE(Patient().FetchTrustedDomains());
    EXPECT_FALSE(Patient().FetchScEnabledSvcs());
    EXPECT_THAT(
        log.Take(),
        ElementsAre(Error("Failed to get AD config: Exception 0x00000005: Access is denied."),
                    Error("Failed to get trusted domains: Exception 0x00000005: Access is denied."),
                    Error("Failed to get smart card enabled services: Exception 0x00000005: Access is denied.")));
}

TEST_F(StoreRefresh, NoMembershipSeenByTheTrustStateStepIsASuccess) {
    plugin->setStatus(kGetTrustedDomains, 2);
    EXPECT_TRUE(Patient().FetchDomainTrustState());
    EXPECT_EQ(State(), 7);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreRefresh, SmartCardServicesOfAFailedStepStayAsTheyWere) {
    OpenStore::MutableCache().SetSmartCardEnabledServices({"old"});
    OpenStore::MutableCache().SetPcscdSvcPolicyOn(true);
    plugin->setStatus(kGetSmartCardEnabledServices, 5);
    Patient().FetchScEnabledSvcs();
    EXPECT_TRUE(SmartCardOn({"old"}));
}

// ---------------------------------------------------------------- trust relationships

TEST_F(StoreRefresh, RelationshipsAreAskedForTheOwnDomainAndTheTrustedOnes) {
    OpenStore::MutableCache().SetTrustedDomains({Domain("lab.test", "LAB"), Domain("corp.test", "CORP")});
    BecomeMember();
    plugin->setRelationship("corp.test", 1);
    plugin->setRelationship("lab.test", 2);
    EXPECT_TRUE(Patient().FetchTrustRelationships());
    EXPECT_EQ(Relationship("corp.test"), 1);
    EXPECT_EQ(Relationship("lab.test"), 2);
    EXPECT_EQ(plugin->calls(kGetDomainTrustRelationship), 3) << "a domain that is listed twice is asked for twice";
}

TEST_F(StoreRefresh, AHostThatIsNoMemberAsksForTheEmptyDomain) {
    plugin->setRelationship("", 5);
    EXPECT_TRUE(Patient().FetchTrustRelationships());
    EXPECT_EQ(Relationship(""), 5);
}

TEST_F(StoreRefresh, ADomainThatIsNoLongerListedIsForgotten) {
    BecomeMember();
    OpenStore::MutableCache().SetTrustedDomains({Domain("lab.test", "LAB")});
    plugin->setValue(kGetDomainTrustRelationship, 3);
    Patient().FetchTrustRelationships();
    EXPECT_EQ(Relationship("lab.test"), 3);
    OpenStore::MutableCache().SetTrustedDomains({});
    Patient().FetchTrustRelationships();
    EXPECT_EQ(Relationship("lab.test"), 6);
    EXPECT_EQ(Relationship("corp.test"), 3);
}

TEST_F(StoreRefresh, ADomainThatTimesOutInThisPassIsForgottenUntilItsAnswerComes) {
    BecomeMember();
    plugin->setValue(kGetDomainTrustRelationship, 3);
    Patient().FetchTrustRelationships();
    plugin->hold(kGetDomainTrustRelationship);
    EXPECT_TRUE(Impatient().FetchTrustRelationships());
    EXPECT_EQ(Relationship("corp.test"), 6);
    plugin->letGo(kGetDomainTrustRelationship);
    OpenStore::AwaitAllRequests();
    EXPECT_EQ(Relationship("corp.test"), 3);
}

TEST_F(StoreRefresh, ManyPassesDoNotBringForgottenDomainsBack) {
    BecomeMember();
    plugin->setValue(kGetDomainTrustRelationship, 3);
    OpenStore::MutableCache().SetTrustedDomains({Domain("lab.test", "LAB")});
    Patient().FetchTrustRelationships();
    OpenStore::MutableCache().SetTrustedDomains({});
    for (int pass = 0; pass < 300; ++pass) Patient().FetchTrustRelationships();
    EXPECT_EQ(Relationship("lab.test"), 6);
    EXPECT_EQ(Relationship("corp.test"), 3);
}

}  // namespace
}  // namespace nimbrel::authentication::test
