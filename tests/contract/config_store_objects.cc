// The objects and ids of the store, which are the same code in the real library and in the twin.

#include <type_traits>
#include <vector>

#include "config_store.h"

namespace {

using OrbConfigStore::ConfigStoreException;

TEST(ConfigStoreObjects, IdKeepsItsThreeTexts) {
    const ConfigStoreObjectId id("active_directory", "identity", "orb");
    EXPECT_EQ(id.Key(), "active_directory");
    EXPECT_EQ(id.Group(), "identity");
    EXPECT_EQ(id.Component(), "orb");
}

TEST(ConfigStoreObjects, IdsAreOrderedByComponentGroupKey) {
    const std::vector<ConfigStoreObjectId> ordered = {
        {"z", "z", "a"}, {"a", "a", "b"}, {"z", "a", "b"}, {"a", "b", "b"}, {"a", "a", "c"}};
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        for (std::size_t j = 0; j < ordered.size(); ++j) {
            EXPECT_EQ(ordered[i] < ordered[j], i < j) << i << " " << j;
            EXPECT_EQ(ordered[i] == ordered[j], i == j) << i << " " << j;
        }
    }
}

TEST(ConfigStoreObjects, NullTextsAreRefused) {
    EXPECT_THROW(ConfigStoreObjectId(nullptr, "group", "component"), ConfigStoreException);
    EXPECT_THROW(ConfigStoreObjectId("key", nullptr, "component"), ConfigStoreException);
    EXPECT_THROW(ConfigStoreObjectId("key", "group", nullptr), ConfigStoreException);
    ConfigStoreObject object(ContractId("one"));
    EXPECT_THROW(object.SetValue(nullptr, "value"), ConfigStoreException);
    EXPECT_THROW(object.GetValue(nullptr, nullptr), ConfigStoreException);
}

TEST(ConfigStoreObjects, LastSettingOfAValueWins) {
    ConfigStoreObject object(ContractId("one"));
    object.SetValue("name", "first");
    object.SetValue("name", "second");
    EXPECT_EQ(object.Values(), (Values{{"name", "second"}}));
    EXPECT_TRUE(object.GetValue("name", nullptr));
    EXPECT_FALSE(object.GetValue("other", nullptr));
}

TEST(ConfigStoreObjects, NamespaceMustHaveAName) { EXPECT_THROW(ConfigStore::GetStore(""), ConfigStoreException); }

TEST(ConfigStoreObjects, WordMustBeZeroAndIsLeftAlone) {
    const auto store = ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace);
    const auto object = std::make_shared<ConfigStoreObject>(ContractId("word"));
    std::uint32_t word = 1;
    EXPECT_THROW(store->SetObject(object, word), ConfigStoreException);
    EXPECT_EQ(word, 1U);
    EXPECT_EQ(store->GetObject(ContractId("word")), nullptr);
    word = 0;
    store->SetObject(object, word);
    EXPECT_EQ(word, 0U);
    store->RemoveObject(ContractId("word"));
}

TEST(ConfigStoreObjects, ExceptionIsAPlatformExceptionAndKeepsItsText) {
    static_assert(std::is_base_of_v<HostMgmt::Lib::HostMgmtException, ConfigStoreException>);
    EXPECT_STREQ(ConfigStoreException("disk full").what(), "disk full");
    EXPECT_STREQ(ConfigStoreException(nullptr).what(), "");
}

}  // namespace
