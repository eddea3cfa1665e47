// Leaving a domain, on request and because the settings of a fresh join could not be stored.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "store/membership.h"

namespace nimbrel::authentication::test {
namespace {

using OrbConfigStore::ConfigStoreException;
using OrbConfigStore::Memory::FailAlways;
using OrbConfigStore::Memory::FailNext;
using OrbConfigStore::Memory::Operation;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr const char* kAccessDenied = "Exception 0x00000005: Access is denied.";

class DomainLeave : public MembershipTest {
 protected:
    // A host that has joined corp.test, with a new journal.
    void Join() {
        store.JoinDomain("corp.test/OU=Hosts", administrator, true);
        Journal::Clear();
    }

    template <typename Error>
    std::string FailedJoin() {
        return TextOf<Error>([&] { store.JoinDomain("corp.test", administrator, true); });
    }
};

TEST_F(DomainLeave, WithoutCredentialsRemovesTheSettings) {
    Join();
    store.PartDomain();
    EXPECT_THAT(Journal::Entries(), ElementsAre("part(null)"));
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_F(DomainLeave, RemovesTheSettingsOnlyAfterTheProviderHasLeft) {
    Join();
    std::size_t settings = 0;
    Journal::WhenAdded([&](const std::string&) { settings = Settings().size(); });
    store.PartDomain();
    EXPECT_EQ(settings, 3u);
}

TEST_F(DomainLeave, WithCredentialsKeepsTheSettings) {
    Join();
    const int opened = OrbConfigStore::Memory::CallCount(Operation::kGetStore);
    store.PartDomain(administrator);
    EXPECT_THAT(Journal::Entries(), ElementsAre(std::string("part(administrator, ") + kPassword + ")"));
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kGetStore), opened);
    EXPECT_THAT(Settings(), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "corp.test"),
                                        Pair("organizational_unit", "OU=Hosts")));
}

TEST_F(DomainLeave, WithCredentialsPassesThemOnUnchecked) {
    store.PartDomain({nullptr, nullptr});
    store.PartDomain({"", ""});
    EXPECT_THAT(Journal::Entries(), ElementsAre("part(null, null)", "part(, )"));
}

TEST_F(DomainLeave, WithNothingStoredIsNoError) {
    store.PartDomain();
    EXPECT_THAT(Journal::Entries(), ElementsAre("part(null)"));
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kRemoveObject), 0);
}

TEST_F(DomainLeave, KeepsTheSettingsWhenTheProviderCannotLeave) {
    Join();
    provider.Answer(SCRIPTED_PART, {5});
    EXPECT_EQ(TextOf<AccessDeniedException>([&] { store.PartDomain(); }), kAccessDenied);
    EXPECT_EQ(TextOf<AccessDeniedException>([&] { store.PartDomain(administrator); }), kAccessDenied);
    EXPECT_EQ(Settings().size(), 3u);
    EXPECT_THAT(Journal::Logged(), IsEmpty());
}

TEST_F(DomainLeave, IsTriedOnce) {
    provider.Answer(SCRIPTED_PART, {1326});
    EXPECT_THROW(store.PartDomain(), LogonFailureException);
    EXPECT_THROW(store.PartDomain(administrator), LogonFailureException);
    EXPECT_EQ(Journal::Entries().size(), 2u);
}

TEST_F(DomainLeave, NeedsAProviderThatCanLeave) {
    InstallProvider("empty", STORE_EMPTY_PROVIDER);
    WriteFile(kProviderFile, "provider = \"empty\"\n");
    ActiveDirectoryStore unable(60);
    EXPECT_THROW(unable.PartDomain(), CallNotImplementedException);
    EXPECT_THROW(unable.PartDomain(administrator), CallNotImplementedException);
}

TEST_F(DomainLeave, LeavesCacheAndProxyCertificateAlone) {
    ActiveDirectoryConfigStore().StoreAuthProxyCertInfo("0A", "PEM");
    provider.BecomeMember("corp.test", "CORP");
    store.UpdateCache(std::nullopt);
    provider.BecomeMember("", "");
    Journal::Clear();
    store.PartDomain();
    EXPECT_TRUE(ActiveDirectoryStore::Cache().IsDomainMember());
    EXPECT_THAT(Journal::Entries(), ElementsAre("part(null)"));
    EXPECT_EQ(ActiveDirectoryConfigStore().GetThumbprint(), "0A");
    EXPECT_EQ(ActiveDirectoryConfigStore().GetCertificate(), "PEM");
}

// Each way in which removing the settings can fail.
class SettingsNotRemoved : public DomainLeave, public ::testing::WithParamInterface<Operation> {};

TEST_P(SettingsNotRemoved, IsLoggedAndRethrownAndTheHostHasLeft) {
    Join();
    FailNext(GetParam(), "database is locked %s");
    EXPECT_EQ(TextOf<ConfigStoreException>([&] { store.PartDomain(); }), "database is locked %s");
    EXPECT_THAT(
        Journal::Entries(),
        ElementsAre("part(null)", "error: Failed to remove domain details from Config Store: database is locked %s"));
    EXPECT_EQ(Settings().size(), 3u);
}

INSTANTIATE_TEST_SUITE_P(DomainLeave, SettingsNotRemoved,
                         ::testing::Values(Operation::kGetStore, Operation::kGetObject, Operation::kRemoveObject));

// Each way in which storing the settings after a join can fail.
class SettingsNotStored : public DomainLeave, public ::testing::WithParamInterface<Operation> {};

TEST_P(SettingsNotStored, IsLoggedAndTheHostLeavesAgain) {
    FailNext(GetParam(), "disk full %n");
    EXPECT_EQ(FailedJoin<ConfigStoreException>(), "disk full %n");
    EXPECT_THAT(Journal::Entries(),
                ElementsAre(JoinCall("corp.test", "null"),
                            "error: Failed to store domain details to Config Store: disk full %n.Leaving Domain...",
                            "part(null)"));
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_P(SettingsNotStored, AndNotAbleToLeaveReportsTheLeave) {
    FailNext(GetParam(), "disk full");
    provider.Answer(SCRIPTED_PART, {5});
    EXPECT_EQ(FailedJoin<AccessDeniedException>(), kAccessDenied);
    EXPECT_THAT(Journal::Entries(),
                ElementsAre(JoinCall("corp.test", "null"),
                            "error: Failed to store domain details to Config Store: disk full.Leaving Domain...",
                            "part(null)"));
}

INSTANTIATE_TEST_SUITE_P(DomainLeave, SettingsNotStored,
                         ::testing::Values(Operation::kGetStore, Operation::kSetObject));

TEST_F(DomainLeave, AfterAFailedStoreKeepsTheSettingsOfAnEarlierJoin) {
    Join();
    FailNext(Operation::kSetObject, "disk full");
    EXPECT_EQ(FailedJoin<ConfigStoreException>(), "disk full");
    EXPECT_EQ(Settings().size(), 3u);
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kRemoveObject), 0);
}

TEST_F(DomainLeave, AfterAFailedStoreIsTriedOnceAndTheJoinIsNotRepeated) {
    FailAlways(Operation::kSetObject, "disk full");
    provider.Answer(SCRIPTED_PART, {1326});
    EXPECT_THROW(store.JoinDomain("corp.test", administrator, true), LogonFailureException);
    EXPECT_EQ(Journal::Entries().size(), 3u);
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kSetObject), 1);
}

TEST_F(DomainLeave, AfterAFailedStoreLeavesTheHostsFileAsTheJoinMadeIt) {
    FailNext(Operation::kSetObject, "disk full");
    EXPECT_THROW(store.JoinDomain("corp.test", administrator, false), ConfigStoreException);
    EXPECT_EQ(SysNet::Memory::HostsEntries().count("192.0.2.10"), 1u);
}

TEST_F(DomainLeave, AndJoiningAgainStoresTheNewDomain) {
    Join();
    store.PartDomain();
    store.JoinDomain("lab.test", administrator, true);
    EXPECT_THAT(Settings(), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "lab.test")));
}

class DomainController : public MembershipTest {};

TEST_F(DomainController, IsAskedForByTheDomainAlone) {
    provider.SetController("dc1.corp.test");
    EXPECT_EQ(store.GetDomainControllerForDomain("corp.test"), "dc1.corp.test");
    EXPECT_THAT(Journal::Entries(), ElementsAre("any domain controller(null, corp.test)"));
}

TEST_F(DomainController, IsEmptyWhenTheProviderAnswersNull) {
    EXPECT_EQ(store.GetDomainControllerForDomain(""), "");
    EXPECT_THAT(Journal::Entries(), ElementsAre("any domain controller(null, )"));
}

TEST_F(DomainController, PassesOnTheProvidersFailure) {
    provider.Answer(SCRIPTED_ANY_DOMAIN_CONTROLLER, {1355});
    EXPECT_THROW(store.GetDomainControllerForDomain("corp.test"), NoSuchDomainException);
}

TEST_F(DomainController, IsEmptyWhenTheProviderAnswersThatItCannot) {
    provider.Answer(SCRIPTED_ANY_DOMAIN_CONTROLLER, {120});
    EXPECT_EQ(store.GetDomainControllerForDomain("corp.test"), "");
}

TEST_F(DomainController, IsEmptyWhenTheProviderLacksTheOperation) {
    InstallProvider("empty", STORE_EMPTY_PROVIDER);
    WriteFile(kProviderFile, "provider = \"empty\"\n");
    EXPECT_EQ(ActiveDirectoryStore(60).GetDomainControllerForDomain("corp.test"), "");
}

}  // namespace
}  // namespace nimbrel::authentication::test
