// The in-memory twin, and what tests can make it do.

#include "config_store_contract.h"
#include "orbconfigstore/memory.h"

namespace Memory = OrbConfigStore::Memory;
using Memory::Operation;

struct MemoryStore {
    static std::shared_ptr<ConfigStore> Reopen(const std::string& namespaceName) {
        return ConfigStore::GetStore(namespaceName);
    }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Memory, ConfigStoreContract, MemoryStore);

namespace {

class MemoryControl : public ::testing::Test {
 protected:
    MemoryControl() { Memory::Reset(); }
    ~MemoryControl() override { Memory::Reset(); }

    static void Write(const Values& values) {
        WriteObject(*ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace), ContractId("one"), values);
    }
    static std::string WriteError() {
        try {
            Write({{"name", "new"}});
        } catch (const OrbConfigStore::ConfigStoreException& error) {
            return error.what();
        }
        return "";
    }
};

TEST_F(MemoryControl, SnapshotShowsWhatIsStored) {
    Write({{"name", "stored"}});
    EXPECT_EQ(Memory::Snapshot().at(ContractId("one")), (Values{{"name", "stored"}}));
    EXPECT_TRUE(Memory::Snapshot("other").empty());
}

TEST_F(MemoryControl, FailedOperationChangesNothing) {
    Write({{"name", "old"}});
    Memory::FailNext(Operation::kSetObject, "disk full");
    EXPECT_EQ(WriteError(), "disk full");
    EXPECT_EQ(Memory::Snapshot().at(ContractId("one")), (Values{{"name", "old"}}));
}

TEST_F(MemoryControl, QueuedFailuresComeInOrderAndBeforeLastingOnes) {
    Memory::FailNext(Operation::kSetObject, "first");
    Memory::FailNext(Operation::kSetObject, "second");
    Memory::FailAlways(Operation::kSetObject, "always");
    EXPECT_EQ(WriteError(), "first");
    EXPECT_EQ(WriteError(), "second");
    EXPECT_EQ(WriteError(), "always");
    EXPECT_EQ(WriteError(), "always");
    Memory::Reset();
    EXPECT_EQ(WriteError(), "");
}

TEST_F(MemoryControl, EveryOperationFailsWhenTold) {
    const auto store = ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace);
    Memory::FailNext(Operation::kGetStore, "no store");
    EXPECT_THROW(ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace), OrbConfigStore::ConfigStoreException);
    Memory::FailNext(Operation::kGetObject, "no read");
    EXPECT_THROW(store->GetObject(ContractId("one")), OrbConfigStore::ConfigStoreException);
    Memory::FailNext(Operation::kRemoveObject, "no removal");
    EXPECT_THROW(store->RemoveObject(ContractId("one")), OrbConfigStore::ConfigStoreException);
}

TEST_F(MemoryControl, CallsAreCounted) {
    Memory::FailNext(Operation::kSetObject, "disk full");
    EXPECT_EQ(WriteError(), "disk full");
    Write({});
    EXPECT_EQ(Memory::CallCount(Operation::kSetObject), 2);
    EXPECT_EQ(Memory::CallCount(Operation::kGetStore), 2);
    EXPECT_EQ(Memory::CallCount(Operation::kGetObject), 0);
}

}  // namespace
