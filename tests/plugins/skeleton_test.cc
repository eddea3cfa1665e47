// The provider that authors start from, built as they build it, through the real store.

#include <atomic>
#include <thread>

#include "authentication/exceptions.h"
#include "plugins/calls.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Credentials kAdministrator{"administrator", "skeleton"};
const Credentials kStranger{"stranger", "skeleton"};

class Skeleton : public ::testing::Test {
 protected:
    Skeleton() : provider(Installed()), store(kPatient) {
        Sleeps() = {};
        OpenStore::ResetCache();
        provider.PartDomain();  // an earlier test's worker may have kept the plug-in, and its membership, in memory
        provider.SetPreferredDomainControllers({});
        provider.SetSmartCardEnabledServices({});
    }

    void Join() { provider.JoinDomain("corp.test", "", kAdministrator); }

    const ActiveDirectoryProvider provider;
    OpenStore store;

 private:
    static std::string Installed() {
        RemoveProviders();
        CopySystemFile(NIMAUTH_TEST_SKELETON, ProviderPath("skeleton"));
        ConfigureProvider("provider = \"skeleton\"\n");
        return "skeleton";
    }
};

TEST_F(Skeleton, NamesItsModules) {
    EXPECT_EQ(provider.PAMModule(), "pam_skeleton.so");
    EXPECT_THAT(provider.PAMModuleParameters(), ElementsAre("try_first_pass"));
    EXPECT_EQ(provider.NSSModule(), "skeleton");
    EXPECT_THAT(provider.NSSModuleParameters(), IsEmpty());
    EXPECT_EQ(provider.GetAPIVersion(), 2);
}

TEST_F(Skeleton, IsNoMemberAtFirst) {
    EXPECT_EQ(store.GetDomainTrustState(), 7);
    store.UpdateCache(std::nullopt);
    EXPECT_FALSE(ActiveDirectoryStore::Cache().IsDomainMember());
    EXPECT_EQ(provider.GetMachineAccountDN(), "");
}

TEST_F(Skeleton, AMembersCacheIsFilledInOnePass) {
    Join();
    store.UpdateCache(true);
    const ADCache& cache = ActiveDirectoryStore::Cache();
    EXPECT_EQ(cache.GetConfiguration().DomainDNSName(), "corp.test");
    EXPECT_EQ(cache.GetConfiguration().DomainNetBIOSName(), "CORP");
    EXPECT_EQ(cache.GetConfiguration().MachineAccountDN(), "CN=NODE01,CN=Computers,DC=corp,DC=test");
    EXPECT_EQ(cache.GetDomainTrustState(), 1);
    EXPECT_EQ(cache.GetAllDomains().size(), 2u);
    EXPECT_EQ(cache.GetDomainTrustRelationship("corp.test"), 1);
    EXPECT_EQ(cache.GetDomainTrustRelationship("lab.test"), 2);
    EXPECT_EQ(store.GetDomainTrustRelationship("elsewhere.test"), 6);
}

TEST_F(Skeleton, ChecksWhoJoinsWhat) {
    EXPECT_THROW(provider.JoinDomain("nowhere.test", "", kAdministrator), NoSuchDomainException);
    EXPECT_THAT(Sleeps().seconds, IsEmpty());
    EXPECT_THROW(provider.JoinDomain("corp.test", "", kStranger), LogonFailureException);
    EXPECT_EQ(Sleeps().seconds.size(), 4u);
    EXPECT_THROW(provider.JoinDomain("corp.test", "", {nullptr, nullptr}), LogonFailureException);
    Join();
    EXPECT_THROW(Join(), SetupAlreadyJoinedException);
}

TEST_F(Skeleton, LeavesWithAndWithoutCredentials) {
    Join();
    EXPECT_THROW(provider.PartDomain(kStranger), LogonFailureException);
    provider.PartDomain(kAdministrator);
    EXPECT_EQ(provider.GetActiveDomain().DNSName(), "");
    Join();
    provider.PartDomain();
    EXPECT_THROW(provider.GetTrustedDomains(), FileNotFoundException);
}

TEST_F(Skeleton, JoinsWithAMachineAccount) {
    const APX::DirectoryDomainInfo domain{"", "CORP", "corp.test", "S-1-5-21-1-2-3"};
    EXPECT_THROW(provider.JoinDomainWithMachineAccount(domain, {}), InvalidParameterException);
    provider.JoinDomainWithMachineAccount(domain, {"node01", "corp.test", "", "principal", "secret"});
    EXPECT_EQ(store.GetDomainTrustState(), 1);
}

TEST_F(Skeleton, AnswersNames) {
    EXPECT_EQ(store.ConvertCanonicalUsername("CORP\\user"), "user@corp.test");
    EXPECT_EQ(store.ConvertCanonicalUsername("user@corp.test"), "user@corp.test");
    EXPECT_EQ(store.GetHostPrincipalForDomain("corp.test"), "host/node01.corp.test@CORP.TEST");
    EXPECT_EQ(store.GetDomainControllerForDomain("CORP.test"), "dc1.corp.test");
    EXPECT_THROW(store.GetDomainControllerForDomain("nowhere.test"), NoSuchDomainException);
}

TEST_F(Skeleton, KeepsItsSettings) {
    store.SetPreferredDomainControllers({"dc2.corp.test", "dc1.corp.test"});
    EXPECT_THAT(provider.GetPreferredDomainControllers(), ElementsAre("dc2.corp.test", "dc1.corp.test"));
    store.SetPreferredDomainControllers({});
    EXPECT_THAT(provider.GetPreferredDomainControllers(), IsEmpty());

    store.SetSmartCardEnabledServices({"login"});
    EXPECT_THAT(store.GetSmartCardEnabledServices(), ElementsAre("login"));
    EXPECT_THROW(store.SetSmartCardEnabledServices(std::vector<std::string>(17, "s")), InvalidParameterException);
    EXPECT_THROW(store.SetSmartCardEnabledServices({std::string(256, 's')}), InvalidParameterException);
    EXPECT_THAT(store.GetSmartCardEnabledServices(), ElementsAre("login"));
}

TEST_F(Skeleton, StandsCallsFromManyThreads) {
    std::atomic<int> strange = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 100; ++round) {
                provider.SetPreferredDomainControllers({std::to_string(i), std::to_string(i)});
                const std::deque<std::string> controllers = provider.GetPreferredDomainControllers();
                if (controllers.size() != 2 || controllers[0] != controllers[1]) ++strange;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(strange, 0);
}

}  // namespace
}  // namespace nimbrel::authentication::test
