// The operations that go straight to the provider, on the caller's thread.

#include "authentication/exceptions.h"
#include "plugins/calls.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const kServices[] = {"login", "sshd", nullptr};

class StorePassThrough : public ScriptedStoreTest {
 protected:
    static bool SmartCardOn(const char* service) {
        OpenStore::MutableCache().SetPcscdSvcPolicyOn(true);
        return ActiveDirectoryStore::Cache().IsSmartCardAuthenticationEnabled(&service, 1);
    }
};

TEST_F(StorePassThrough, TextsAreTheProviders) {
    plugin->setText(kConvertCanonicalUsername, "CORP\\user");
    plugin->setText(kGetHostPrincipalForDomain, "host/node01@CORP.TEST");
    plugin->setText(kGetAnyDomainController, "dc1.corp.test");
    EXPECT_EQ(Patient().ConvertCanonicalUsername("user"), "CORP\\user");
    EXPECT_EQ(Patient().GetHostPrincipalForDomain("corp.test"), "host/node01@CORP.TEST");
    EXPECT_EQ(Patient().GetDomainControllerForDomain("corp.test"), "dc1.corp.test");
}

TEST_F(StorePassThrough, MissingOperationsHaveTheirOwnAnswers) {
    for (int slot : {kConvertCanonicalUsername, kGetHostPrincipalForDomain, kGetAnyDomainController}) {
        plugin->setPresent(slot, false);
    }
    EXPECT_EQ(Patient().ConvertCanonicalUsername("user@corp.test"), "user@corp.test");
    EXPECT_EQ(Patient().GetHostPrincipalForDomain("corp.test"), "");
    EXPECT_EQ(Patient().GetDomainControllerForDomain("corp.test"), "");
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StorePassThrough, AnEmptyAnswerIsNotAMissingOperation) {
    EXPECT_EQ(Patient().ConvertCanonicalUsername("user"), "");
}

TEST_F(StorePassThrough, OtherFailuresPass) {
    for (int slot = 1; slot < kSlotCount; ++slot) plugin->setStatus(slot, 5);
    EXPECT_THROW(Patient().ConvertCanonicalUsername("user"), AccessDeniedException);
    EXPECT_THROW(Patient().GetHostPrincipalForDomain("corp.test"), AccessDeniedException);
    EXPECT_THROW(Patient().GetDomainControllerForDomain("corp.test"), AccessDeniedException);
    EXPECT_THROW(Patient().GetSmartCardEnabledServices(), AccessDeniedException);
    EXPECT_THROW(Patient().SetSmartCardEnabledServices({"login"}), AccessDeniedException);
    EXPECT_THROW(Patient().SetPreferredDomainControllers({"dc1"}), AccessDeniedException);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StorePassThrough, SmartCardServicesAreReadFromTheProviderAndNotCached) {
    plugin->setTexts(kGetSmartCardEnabledServices, kServices);
    EXPECT_THAT(Patient().GetSmartCardEnabledServices(), ElementsAre("login", "sshd"));
    EXPECT_FALSE(SmartCardOn("login"));
}

TEST_F(StorePassThrough, SmartCardServicesAreCachedOnceTheProviderHasThem) {
    Patient().SetSmartCardEnabledServices({"login"});
    EXPECT_EQ(plugin->calls(kSetSmartCardEnabledServices), 1);
    EXPECT_TRUE(SmartCardOn("login"));

    plugin->setStatus(kSetSmartCardEnabledServices, 5);
    EXPECT_THROW(Patient().SetSmartCardEnabledServices({"sshd"}), AccessDeniedException);
    EXPECT_FALSE(SmartCardOn("sshd"));
    EXPECT_TRUE(SmartCardOn("login"));
}

TEST_F(StorePassThrough, MissingSmartCardOperationsAreErrors) {
    plugin->setPresent(kSetSmartCardEnabledServices, false);
    plugin->setPresent(kGetSmartCardEnabledServices, false);
    EXPECT_THROW(Patient().SetSmartCardEnabledServices({"login"}), CallNotImplementedException);
    EXPECT_THROW(Patient().GetSmartCardEnabledServices(), CallNotImplementedException);
    EXPECT_FALSE(SmartCardOn("login"));
}

TEST_F(StorePassThrough, PreferredControllersReachTheProvider) {
    Patient().SetPreferredDomainControllers({"dc1"});
    EXPECT_EQ(plugin->calls(kSetPreferredDomainControllers), 1);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StorePassThrough, AMissingPreferredControllersOperationIsOnlyLogged) {
    plugin->setPresent(kSetPreferredDomainControllers, false);
    Patient().SetPreferredDomainControllers({"dc1"});
    EXPECT_THAT(log.Take(), ElementsAre(Warning("Setting of preferred domain controllers is not implemented.")));
}

TEST_F(StorePassThrough, NoThreadIsStartedAndNoTimeOutApplies) {
    Creates().count.Reset();
    plugin->setText(kConvertCanonicalUsername, "CORP\\user");
    EXPECT_EQ(Impatient().ConvertCanonicalUsername("user"), "CORP\\user");
    Impatient().GetHostPrincipalForDomain("corp.test");
    Impatient().GetDomainControllerForDomain("corp.test");
    Impatient().SetSmartCardEnabledServices({});
    Impatient().GetSmartCardEnabledServices();
    Impatient().SetPreferredDomainControllers({});
    EXPECT_EQ(Creates().count.Get(), 0);
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
    EXPECT_THAT(log.Take(), IsEmpty());
}

}  // namespace
}  // namespace nimbrel::authentication::test
