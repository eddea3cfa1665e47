// The order of virtual functions, as clients were compiled against it.
//
// A pointer to a virtual member function holds 1 + 8 * slot (Itanium C++ ABI). A virtual destructor takes two slots, so
// it shows as a gap of two. Each class is also called through its table once, as a client's compiled code does.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "authentication/configuration.h"
#include "authentication/directory_cache.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "authentication/stores.h"
#include "orbconfigstore/config_store.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/pam_policy.h"

// Becomes null when what it points to is freed.
static const void* watched = nullptr;

void operator delete(void* memory) noexcept {
    if (memory == watched) watched = nullptr;
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
void* operator new(std::size_t size) {
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

namespace nimbrel::authentication {
namespace {

template <typename Function>
int SlotOf(Function function) {
    std::intptr_t word = 0;
    std::memcpy(&word, &function, sizeof word);
    return (word & 1) == 0 ? -1 : static_cast<int>((word - 1) / 8);
}

// The function in a slot of an object's table.
template <typename Signature>
Signature* InSlot(const void* object, int slot) {
    void* const* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    Signature* function = nullptr;
    std::memcpy(&function, &table[slot], sizeof function);
    return function;
}

TEST(VirtualSlots, OfAStore) {
    EXPECT_EQ(SlotOf(&AuthenticationStore::GetStoreConfiguration), 0);
    EXPECT_EQ(SlotOf(&AuthenticationStore::GetDisplayName), 1);
    EXPECT_EQ(SlotOf(&AuthenticationStore::IsActive), 2);
    EXPECT_EQ(SlotOf(&AuthenticationStore::MakeActive), 3);
    EXPECT_EQ(SlotOf(&RemoteAuthenticationStore::MakeInactive), 6) << "the destructor is 4 and 5";

    EXPECT_EQ(SlotOf(&RemoteAuthenticationStore::IsActive), 2);
    EXPECT_EQ(SlotOf(&DirectoryStore::MakeInactive), 6);
    EXPECT_EQ(SlotOf(&NoRemoteAuthenticationStore::MakeInactive), 6);
    EXPECT_EQ(SlotOf(&ActiveDirectoryStore::GetStoreConfiguration), 0);
    EXPECT_EQ(SlotOf(&ActiveDirectoryStore::GetDisplayName), 1);
    EXPECT_EQ(SlotOf(&ActiveDirectoryStore::MakeActive), 3);
    EXPECT_EQ(SlotOf(&ActiveDirectoryStore::MakeInactive), 6);
    EXPECT_EQ(SlotOf(&ActiveDirectoryStore::UpdateCache), -1) << "nothing else is virtual";
}

TEST(VirtualSlots, AStoreAnswersThroughItsTable) {
    void* const store = std::make_unique<NoRemoteAuthenticationStore>().release();
    EXPECT_EQ(InSlot<std::string(const void*)>(store, 1)(store), "None");

    void* const configuration = InSlot<void*(const void*)>(store, 0)(store);
    InSlot<void(void*)>(configuration, 1)(configuration);  // a configuration has nothing but its destructor

    EXPECT_THROW(InSlot<void(void*)>(store, 6)(store), std::runtime_error);
    InSlot<void(void*)>(store, 5)(store);  // destroys and frees
}

TEST(VirtualSlots, OfAnException) {
    EXPECT_EQ(SlotOf(&Exception::what), 2) << "the destructor is 0 and 1";
    EXPECT_EQ(SlotOf(&Exception::Clone), 3);
    EXPECT_EQ(SlotOf(&Exception::Throw), 4);
    EXPECT_EQ(SlotOf(&AccessDeniedException::Clone), 3);
    EXPECT_EQ(SlotOf(&AccessDeniedException::Throw), 4);
    EXPECT_EQ(SlotOf(&Exception::GetCode), -1);
}

TEST(VirtualSlots, AnExceptionAnswersThroughItsTable) {
    const AccessDeniedException denied;
    EXPECT_STREQ(InSlot<const char*(const void*)>(&denied, 2)(&denied), "Exception 0x00000005: Access is denied.");
    void* const clone = InSlot<void*(const void*)>(&denied, 3)(&denied);
    EXPECT_THROW(InSlot<void(const void*)>(clone, 4)(clone), AccessDeniedException);
    InSlot<void(void*)>(clone, 1)(clone);
}

TEST(VirtualSlots, OfAConfiguration) {
    EXPECT_EQ(SlotOf(&Configuration::Write), 2) << "the destructor is 0 and 1";
    EXPECT_EQ(SlotOf(&ProviderConfiguration::Write), 2);
}

// The destructor alone: complete in slot 0, deleting in slot 1. So the memory goes with the second only.
TEST(VirtualSlots, OfAStoreConfiguration) {
    void* const configuration =
        std::make_unique<ActiveDirectoryStoreConfiguration>("corp.test", "CORP", std::deque<std::string>{"dc1"}, "CN=a")
            .release();
    watched = configuration;
    InSlot<void(void*)>(configuration, 1)(configuration);
    EXPECT_EQ(watched, nullptr) << "has not been freed";

    alignas(ActiveDirectoryStoreConfiguration) char place[sizeof(ActiveDirectoryStoreConfiguration)];
    auto* const placed = new (place) ActiveDirectoryStoreConfiguration;
    watched = placed;
    InSlot<void(void*)>(placed, 0)(placed);
    EXPECT_EQ(watched, placed) << "has been freed";
    watched = nullptr;
}

TEST(VirtualSlots, OfTheSystemFileExceptions) {
    EXPECT_EQ(SlotOf(&SystemConfiguration::InvalidFacilityException::what), 2);
    EXPECT_EQ(SlotOf(&SystemConfiguration::InvalidControlException::what), 2);
    EXPECT_EQ(SlotOf(&SystemConfiguration::InvalidDatabaseException::what), 2);
}

TEST(VirtualSlots, OfTheHostsConfigurationStore) {
    const int first = SlotOf(&OrbConfigStore::ConfigStore::GetObject);
    EXPECT_GE(first, 0);
    EXPECT_EQ(SlotOf(&OrbConfigStore::ConfigStore::SetObject), first + 1);
    EXPECT_EQ(SlotOf(&OrbConfigStore::ConfigStore::RemoveObject), first + 2);
}

}  // namespace
}  // namespace nimbrel::authentication
