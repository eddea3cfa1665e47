// Control of the in-memory configuration store that unit tests link instead of the real one.
//
// `ConfigStore::GetStore` of this twin hands out stores over one table of the process. A test empties it, looks into it
// and makes operations fail:
//
//     OrbConfigStore::Memory::Reset();
//     OrbConfigStore::Memory::FailNext(OrbConfigStore::Memory::Operation::kSetObject, "disk full");
//     const auto store = OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace);
//     const auto object = std::make_shared<OrbConfigStore::ConfigStoreObject>(id);
//     std::uint32_t word = 0;
//     EXPECT_THROW(store->SetObject(object, word), OrbConfigStore::ConfigStoreException);
//     EXPECT_TRUE(OrbConfigStore::Memory::Snapshot().empty());
//
// Threads: everything here may be called by any thread at any time.

#ifndef ORBCONFIGSTORE_TESTING_MEMORY_H_
#define ORBCONFIGSTORE_TESTING_MEMORY_H_

#include <map>
#include <string>

#include "orbconfigstore/config_store.h"

namespace OrbConfigStore::Memory {

enum class Operation { kGetStore, kGetObject, kSetObject, kRemoveObject };

// Forgets all objects, failures and counts.
void Reset();

// The next call of the operation throws ConfigStoreException with `message` and changes nothing. Several calls queue up.
void FailNext(Operation operation, const std::string& message);

// Every call of the operation throws ConfigStoreException with `message`, until `Reset`. Queued failures come first.
void FailAlways(Operation operation, const std::string& message);

// How often the operation was called since `Reset`, failed calls included.
int CallCount(Operation operation);

// A copy of the values of all objects of a namespace.
std::map<ConfigStoreObjectId, StoreObject::ValueMap> Snapshot(const std::string& namespaceName = sGlobalNamespace);

}  // namespace OrbConfigStore::Memory

#endif  // ORBCONFIGSTORE_TESTING_MEMORY_H_
