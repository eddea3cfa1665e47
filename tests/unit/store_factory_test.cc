// The factory of stores, its registry and its one published object.

#include "authentication/store_factory.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

#include "authentication/directory_store.h"
#include "unit/virtual_slots.h"

namespace {

using namespace nimbrel::authentication;

using Names = std::vector<std::string>;
using Factory = AuthenticationStoreFactory;

// A store of the test's own.
class OtherStore : public AuthenticationStore {
 public:
    StoreConfiguration* GetStoreConfiguration() const override { return new StoreConfiguration; }
    std::string GetDisplayName() const override { return "Other"; }
    bool IsActive() const override { return false; }
    void MakeActive() override {}
};

std::unique_ptr<AuthenticationStore> Refuse() { throw std::domain_error("no store today"); }

// Each test may make factories of its own; the library's is published again afterwards.
class StoreFactory : public ::testing::Test {
 protected:
    ~StoreFactory() override { Singleton<Factory>::_instance = _library; }

    static std::string DisplayNameOf(Factory& factory, const std::string& name) {
        const auto store = factory.CreateInstance(name);
        return store == nullptr ? "none" : store->GetDisplayName();
    }

    Factory* const _library = Singleton<Factory>::_instance;
};

TEST_F(StoreFactory, LibraryHasPublishedItsOwnBeforeMain) {
    ASSERT_NE(_library, nullptr);
    EXPECT_EQ(_library->GetRegisteredStores(), (Names{"Active Directory", "None"}));
}

TEST_F(StoreFactory, NewFactoryPublishesItselfWithTheTwoStores) {
    Factory factory;
    EXPECT_EQ(Singleton<Factory>::_instance, &factory);
    EXPECT_EQ(factory.GetRegisteredStores(), (Names{"Active Directory", "None"}));
}

TEST_F(StoreFactory, DestroyedFactoryIsWithdrawn) {
    std::make_unique<Factory>().reset();
    EXPECT_EQ(Singleton<Factory>::_instance, nullptr);
}

TEST_F(StoreFactory, LocalOnlyStoreIsCreatedByItsName) {
    const auto store = _library->CreateInstance("None");
    ASSERT_NE(store, nullptr);
    EXPECT_NE(dynamic_cast<NoRemoteAuthenticationStore*>(store.get()), nullptr);
    EXPECT_EQ(store->GetDisplayName(), "None");
    const std::unique_ptr<StoreConfiguration> configuration(store->GetStoreConfiguration());
    EXPECT_NE(dynamic_cast<NoRemoteAuthenticationStoreConfiguration*>(configuration.get()), nullptr);
}

TEST_F(StoreFactory, EveryCallCreatesAStoreAndASnapshotOfItsOwn) {
    const auto first = _library->CreateInstance("None");
    const auto second = _library->CreateInstance("None");
    EXPECT_NE(first, second);
    const std::unique_ptr<StoreConfiguration> one(first->GetStoreConfiguration());
    const std::unique_ptr<StoreConfiguration> other(first->GetStoreConfiguration());
    EXPECT_NE(one, other);
}

TEST_F(StoreFactory, NameMustMatchExactly) {
    for (const std::string name : {"none", "NONE", "", " None", "None ", "None\n", "Active directory", "LDAP"}) {
        EXPECT_EQ(_library->CreateInstance(name), nullptr) << name;
    }
    EXPECT_EQ(_library->CreateInstance(std::string("None\0", 5)), nullptr);
}

TEST_F(StoreFactory, FirstRegistrationOfANameWins) {
    Factory factory;
    factory.RegisterType("None", Constructor<OtherStore>);
    EXPECT_EQ(DisplayNameOf(factory, "None"), "None");
    factory.RegisterType("Other", Constructor<OtherStore>);
    factory.RegisterType("Other", Refuse);
    EXPECT_EQ(DisplayNameOf(factory, "Other"), "Other");
    EXPECT_EQ(factory.GetRegisteredStores(), (Names{"Active Directory", "None", "Other"}));
}

TEST_F(StoreFactory, StoresAreListedInByteOrder) {
    Factory factory;
    for (const std::string name : {"z", "Kerberos", "active", "None ", "", "\xc3\x84"}) {
        factory.RegisterType(name, Constructor<OtherStore>);
    }
    EXPECT_EQ(factory.GetRegisteredStores(),
              (Names{"", "Active Directory", "Kerberos", "None", "None ", "active", "z", "\xc3\x84"}));
}

TEST_F(StoreFactory, WhatTheConstructorThrowsReachesTheCaller) {
    Factory factory;
    factory.RegisterType("Refused", Refuse);
    EXPECT_THROW(factory.CreateInstance("Refused"), std::domain_error);
}

TEST_F(StoreFactory, RegistrationsOfOneFactoryAreNotSeenByAnother) {
    { Factory().RegisterType("Other", Constructor<OtherStore>); }
    Factory factory;
    EXPECT_EQ(DisplayNameOf(factory, "Other"), "none");
    EXPECT_EQ(DisplayNameOf(*_library, "Other"), "none");
}

TEST_F(StoreFactory, LocalOnlyStoreCannotBeMadeInactive) {
    try {
        NoRemoteAuthenticationStore().MakeInactive();
        ADD_FAILURE() << "it was made inactive";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(typeid(error), typeid(std::runtime_error));
        EXPECT_STREQ(error.what(), "Attempted to disable None Store");
    }
}

TEST(StoreShape, VirtualOperationsKeepTheirPlaces) {
    EXPECT_EQ(SlotOf(&AuthenticationStore::GetStoreConfiguration), 0U);
    EXPECT_EQ(SlotOf(&AuthenticationStore::GetDisplayName), 1U);
    EXPECT_EQ(SlotOf(&AuthenticationStore::IsActive), 2U);
    EXPECT_EQ(SlotOf(&AuthenticationStore::MakeActive), 3U);
    EXPECT_EQ(SlotOf(&RemoteAuthenticationStore::MakeInactive), 6U) << "after the destructor's two";
    EXPECT_EQ(SlotOf(&NoRemoteAuthenticationStore::MakeInactive), 6U);
    EXPECT_EQ(SlotOf(&ActiveDirectoryStore::MakeInactive), 6U);
}

TEST(StoreShape, ClassesFormOneTree) {
    static_assert(std::is_abstract_v<AuthenticationStore> && std::is_abstract_v<DirectoryStore>);
    static_assert(std::is_base_of_v<AuthenticationStore, RemoteAuthenticationStore>);
    static_assert(std::is_base_of_v<RemoteAuthenticationStore, DirectoryStore>);
    static_assert(std::is_base_of_v<RemoteAuthenticationStore, NoRemoteAuthenticationStore>);
    static_assert(std::is_base_of_v<DirectoryStore, ActiveDirectoryStore>);
    static_assert(!std::is_base_of_v<DirectoryStore, NoRemoteAuthenticationStore>);
    static_assert(std::is_base_of_v<StoreConfiguration, ActiveDirectoryStoreConfiguration>);
    static_assert(!std::is_default_constructible_v<ActiveDirectoryStore>);
    static_assert(std::is_constructible_v<ActiveDirectoryStore, int>);
    EXPECT_EQ(sizeof(AuthenticationStore), sizeof(void*));
    EXPECT_EQ(sizeof(DirectoryStore), sizeof(void*));
    EXPECT_EQ(sizeof(StoreConfiguration), sizeof(void*));
    EXPECT_EQ(sizeof(NoRemoteAuthenticationStore), 2 * sizeof(void*)) << "its configuration is held by value";
}

}  // namespace
