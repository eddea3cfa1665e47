// The store's questions when the provider answers in time.

#include "authentication/exceptions.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const kLab[] = {"lab.test", "LAB", nullptr};
const char* const kLabAndSub[] = {"lab.test", "LAB", "sub.lab.test", nullptr, nullptr};

std::vector<std::string> Names(const std::deque<Domain>& domains) {
    std::vector<std::string> names;
    for (const Domain& domain : domains) names.push_back(domain.DNSName() + "/" + domain.NetBIOSName());
    return names;
}

class StoreQueries : public ScriptedStoreTest {
 protected:
    static const ADCache& Cache() { return ActiveDirectoryStore::Cache(); }
    static int CachedState() { return Cache().GetDomainTrustState(); }
    static int CachedRelationship(const std::string& domain) { return Cache().GetDomainTrustRelationship(domain); }
    int State() { return Patient().GetDomainTrustState(); }
    int Relationship(const std::string& domain) { return Patient().GetDomainTrustRelationship(domain); }
    std::vector<std::string> TrustedDomains() { return Names(Patient().GetTrustedDomains()); }
};

// ---------------------------------------------------------------- answers

TEST_F(StoreQueries, TrustedDomainsAreReturnedAndCached) {
    plugin->setTexts(kGetTrustedDomains, kLabAndSub);
    EXPECT_THAT(TrustedDomains(), ElementsAre("lab.test/LAB", "sub.lab.test/"));
    EXPECT_THAT(Names(Cache().GetTrustedDomains()), ElementsAre("lab.test/LAB", "sub.lab.test/"));
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreQueries, TheTrustStateIsReturnedAndCachedUnchanged) {
    for (int state : {0, 1, 2, 6, 7, 120, -1, INT32_MAX}) {
        plugin->setValue(kGetDomainTrustState, state);
        EXPECT_EQ(State(), state);
        EXPECT_EQ(CachedState(), state);
    }
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreQueries, TrustRelationshipsAreReturnedAndCachedByExactName) {
    plugin->setRelationship("lab.test", 3);
    plugin->setRelationship("", 4);
    plugin->setValue(kGetDomainTrustRelationship, -5);
    EXPECT_EQ(Relationship("lab.test"), 3);
    EXPECT_EQ(Relationship(""), 4);
    EXPECT_EQ(Relationship("LAB.TEST"), -5);
    EXPECT_EQ(CachedRelationship("lab.test"), 3);
    EXPECT_EQ(CachedRelationship(""), 4);
    EXPECT_EQ(CachedRelationship("Lab.Test"), 6);
}

TEST_F(StoreQueries, EachQuestionAsksTheProviderAnew) {
    Patient().GetTrustedDomains();
    plugin->setTexts(kGetTrustedDomains, kLab);
    EXPECT_THAT(TrustedDomains(), ElementsAre("lab.test/LAB"));
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 2);
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
}

TEST_F(StoreQueries, AllStoresShareOneCache) {
    plugin->setTexts(kGetTrustedDomains, kLab);
    MakeStore(kPatient)->GetTrustedDomains();
    plugin->hold(kGetTrustedDomains);
    EXPECT_THAT(Names(Impatient().GetTrustedDomains()), ElementsAre("lab.test/LAB"));
}

// ---------------------------------------------------------------- failures

TEST_F(StoreQueries, AFailureIsThrownByClassAndLeavesTheCacheAlone) {
    plugin->setTexts(kGetTrustedDomains, kLab);
    Patient().GetTrustedDomains();
    plugin->setStatus(kGetTrustedDomains, 1311);
    EXPECT_EQ(TextOf<NoLogonServersException>([&] { Patient().GetTrustedDomains(); }),
              "Exception 0x0000051f: There are currently no logon servers available to service the logon request.");
    EXPECT_THAT(Names(Cache().GetTrustedDomains()), ElementsAre("lab.test/LAB"));
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreQueries, AFailureKeepsItsCode) {
    plugin->setStatus(kGetTrustedDomains, 0x80090311);
    try {
        Patient().GetTrustedDomains();
        ADD_FAILURE() << "answered";
    } catch (const UnknownException& error) {
        EXPECT_EQ(error.GetCode(), 0x80090311u);
    }
}

TEST_F(StoreQueries, TheNextCallerIsNotHeldToAnEarlierFailure) {
    plugin->setStatus(kGetTrustedDomains, 5);
    EXPECT_THROW(Patient().GetTrustedDomains(), AccessDeniedException);
    plugin->setStatus(kGetTrustedDomains, 0);
    plugin->setTexts(kGetTrustedDomains, kLab);
    EXPECT_THAT(TrustedDomains(), ElementsAre("lab.test/LAB"));
}

TEST_F(StoreQueries, FileNotFoundInTrustedDomainsIsAnErrorOfThatQuestion) {
    plugin->setStatus(kGetTrustedDomains, 2);
    EXPECT_THROW(Patient().GetTrustedDomains(), FileNotFoundException);
}

// ---------------------------------------------------------------- the trust state asks for the trusted domains first

TEST_F(StoreQueries, TheTrustStateAsksForTheTrustedDomainsFirst) {
    plugin->setTexts(kGetTrustedDomains, kLab);
    State();
    EXPECT_THAT(Order(), ElementsAre(kGetTrustedDomains, kGetDomainTrustState));
    EXPECT_THAT(Names(Cache().GetTrustedDomains()), ElementsAre("lab.test/LAB"));
}

TEST_F(StoreQueries, FileNotFoundThereMeansNoMember) {
    plugin->setValue(kGetDomainTrustState, 1);
    EXPECT_EQ(State(), 1);
    plugin->setStatus(kGetTrustedDomains, 2);
    EXPECT_EQ(State(), 7);
    EXPECT_EQ(CachedState(), 7);
    EXPECT_EQ(plugin->calls(kGetDomainTrustState), 1);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreQueries, AnyOtherFailureThereIsOnlyLogged) {
    plugin->setValue(kGetDomainTrustState, 1);
    plugin->setStatus(kGetTrustedDomains, 5);
    EXPECT_EQ(State(), 1);
    EXPECT_THAT(log.Take(), ElementsAre(Warning("GetDomainTrustState: Call to GetTrustedDomains() failed: Exception "
                                                "0x00000005: Access is denied.")));
}

TEST_F(StoreQueries, AMissingOperationThereIsNeitherLoggedNorAnError) {
    plugin->setPresent(kGetTrustedDomains, false);
    plugin->setValue(kGetDomainTrustState, 1);
    EXPECT_EQ(State(), 1);
    EXPECT_THAT(log.Take(), IsEmpty());
}

// ---------------------------------------------------------------- missing operations

TEST_F(StoreQueries, WithoutATrustStateOperationTheStateIsZero) {
    plugin->setPresent(kGetDomainTrustState, false);
    EXPECT_EQ(State(), 0);
    EXPECT_EQ(CachedState(), 0);
}

TEST_F(StoreQueries, WithoutATrustedDomainsOperationTheCachedListIsEmptied) {
    OpenStore::MutableCache().SetTrustedDomains({Domain("old.test", "OLD")});
    plugin->setPresent(kGetTrustedDomains, false);
    EXPECT_THAT(TrustedDomains(), IsEmpty());
    EXPECT_THAT(Cache().GetTrustedDomains(), IsEmpty());
}

TEST_F(StoreQueries, WithoutATrustRelationshipOperationItIsZeroAndNotSix) {
    plugin->setPresent(kGetDomainTrustRelationship, false);
    EXPECT_EQ(CachedRelationship("lab.test"), 6);
    EXPECT_EQ(Relationship("lab.test"), 0);
    EXPECT_EQ(CachedRelationship("lab.test"), 0);
}

TEST_F(StoreQueries, AStatusOf120IsAMissingOperation) {
    OpenStore::MutableCache().SetTrustedDomains({Domain("old.test", "OLD")});
    plugin->setStatus(kGetTrustedDomains, 120);
    EXPECT_THAT(TrustedDomains(), IsEmpty());
    EXPECT_THAT(Cache().GetTrustedDomains(), IsEmpty());
}

}  // namespace
}  // namespace nimbrel::authentication::test
