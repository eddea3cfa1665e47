// The host-management library over the in-memory configuration store.

#include "advanced_options_contract.h"
#include "orbconfigstore/memory.h"

namespace Memory = OrbConfigStore::Memory;

namespace {

struct MemoryHost {
    static void Reset() { Memory::Reset(); }
};

TEST(AdvancedOptions, FailureOfTheStoreIsSeen) {
    Memory::Reset();
    Memory::FailNext(Memory::Operation::kGetStore, "no store");
    EXPECT_THROW(HostFactory::GetHost()->GetAdvancedOptions(), OrbConfigStore::ConfigStoreException);
    const auto options = HostFactory::GetHost()->GetAdvancedOptions();
    Memory::FailNext(Memory::Operation::kSetObject, "disk full");
    EXPECT_THROW(options->DeclareInteger("Net.Retries", 1, ""), OrbConfigStore::ConfigStoreException);
    EXPECT_EQ(options->GetRootBranch()->GetBranch("Net"), nullptr);
    Memory::Reset();
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Memory, AdvancedOptionsContract, MemoryHost);
