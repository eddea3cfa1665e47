// The question for the store's configuration: three questions to the provider in one request.

#include "authentication/exceptions.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const kCorp[] = {"corp.test", "CORP", nullptr};
const char* const kControllers[] = {"dc2", "dc1", nullptr};

class StoreConfigurationQuery : public ScriptedStoreTest {
 protected:
    StoreConfigurationQuery() {
        plugin->setTexts(kGetActiveDomain, kCorp);
        plugin->setTexts(kGetPreferredDomainControllers, kControllers);
        plugin->setText(kGetMachineAccountDN, "CN=node01");
        OpenStore::MutableCache().SetConfiguration(
            ActiveDirectoryStoreConfiguration("old.test", "OLD", {"old-dc"}, "CN=old"));
    }

    static std::string Shown(const ActiveDirectoryStoreConfiguration& configuration) {
        std::string shown = configuration.DomainDNSName() + " " + configuration.DomainNetBIOSName() + " [";
        for (const std::string& controller : configuration.PreferredDomainControllers()) shown += controller + " ";
        return shown + "] " + configuration.MachineAccountDN();
    }
    static std::string Cached() { return Shown(ActiveDirectoryStore::Cache().GetConfiguration()); }
    std::string Answer(const OpenStore& store) {
        const std::unique_ptr<StoreConfiguration> answer(store.GetStoreConfiguration());
        return Shown(dynamic_cast<const ActiveDirectoryStoreConfiguration&>(*answer));
    }
};

TEST_F(StoreConfigurationQuery, AsksForDomainControllersAndAccountInThisOrder) {
    EXPECT_EQ(Answer(Patient()), "corp.test CORP [dc2 dc1 ] CN=node01");
    EXPECT_EQ(Cached(), "corp.test CORP [dc2 dc1 ] CN=node01");
    EXPECT_THAT(Order(), ElementsAre(kGetActiveDomain, kGetPreferredDomainControllers, kGetMachineAccountDN));
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreConfigurationQuery, AHostThatIsNoMemberHasEmptyNames) {
    plugin->setTexts(kGetActiveDomain, nullptr);
    EXPECT_EQ(Answer(Patient()), "  [dc2 dc1 ] CN=node01");
    EXPECT_FALSE(ActiveDirectoryStore::Cache().IsDomainMember());
}

TEST_F(StoreConfigurationQuery, AMissingOperationLeavesItsFieldEmpty) {
    const struct {
        int slot;
        const char* configuration;
    } kRows[] = {{kGetActiveDomain, "  [dc2 dc1 ] CN=node01"},
                 {kGetPreferredDomainControllers, "corp.test CORP [] CN=node01"},
                 {kGetMachineAccountDN, "corp.test CORP [dc2 dc1 ] "}};
    for (const auto& row : kRows) {
        plugin->setPresent(row.slot, false);
        EXPECT_EQ(Answer(Patient()), row.configuration);
        EXPECT_EQ(Cached(), row.configuration);
        plugin->setPresent(row.slot, true);
    }
}

TEST_F(StoreConfigurationQuery, WithoutAnyOperationEverythingIsEmpty) {
    for (int slot : {kGetActiveDomain, kGetPreferredDomainControllers, kGetMachineAccountDN}) {
        plugin->setPresent(slot, false);
    }
    EXPECT_EQ(Answer(Patient()), "  [] ");
}

TEST_F(StoreConfigurationQuery, TheFirstErrorEndsItAndTheCacheKeepsItsConfiguration) {
    const struct {
        int slot;
        std::vector<int> order;
    } kRows[] = {{kGetActiveDomain, {kGetActiveDomain}},
                 {kGetPreferredDomainControllers, {kGetActiveDomain, kGetPreferredDomainControllers}},
                 {kGetMachineAccountDN, {kGetActiveDomain, kGetPreferredDomainControllers, kGetMachineAccountDN}}};
    std::vector<int> order;
    for (const auto& row : kRows) {
        plugin->setStatus(row.slot, 1355);
        EXPECT_THROW(Patient().GetStoreConfiguration(), NoSuchDomainException);
        EXPECT_EQ(Cached(), "old.test OLD [old-dc ] CN=old");
        order.insert(order.end(), row.order.begin(), row.order.end());
        EXPECT_EQ(Order(), order);
        plugin->setStatus(row.slot, 0);
    }
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
}

TEST_F(StoreConfigurationQuery, ATimeOutAnswersWithTheCachedSnapshot) {
    plugin->hold(kGetPreferredDomainControllers);
    EXPECT_EQ(Answer(Impatient()), "old.test OLD [old-dc ] CN=old");
    EXPECT_THAT(log.Take(), ElementsAre(Warning("GetStoreConfiguration call timedout. Returning cached value.")));

    plugin->letGo(kGetPreferredDomainControllers);
    OpenStore::AwaitAllRequests();
    EXPECT_EQ(Cached(), "corp.test CORP [dc2 dc1 ] CN=node01");
}

TEST_F(StoreConfigurationQuery, EachSnapshotIsItsOwn) {
    const std::unique_ptr<StoreConfiguration> first(Patient().GetStoreConfiguration());
    plugin->setText(kGetMachineAccountDN, "CN=renamed");
    const std::unique_ptr<StoreConfiguration> second(Patient().GetStoreConfiguration());
    EXPECT_EQ(Shown(dynamic_cast<ActiveDirectoryStoreConfiguration&>(*first)), "corp.test CORP [dc2 dc1 ] CN=node01");
    EXPECT_EQ(Shown(dynamic_cast<ActiveDirectoryStoreConfiguration&>(*second)), "corp.test CORP [dc2 dc1 ] CN=renamed");
}

}  // namespace
}  // namespace nimbrel::authentication::test
