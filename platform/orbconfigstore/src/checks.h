// What every implementation of the store demands of its callers.

#ifndef ORBCONFIGSTORE_SRC_CHECKS_H_
#define ORBCONFIGSTORE_SRC_CHECKS_H_

#include <cstdint>
#include <memory>
#include <string>

#include "orbconfigstore/config_store.h"

namespace OrbConfigStore {

// Throws ConfigStoreException if there is no object or a flag is asked for that no store knows.
inline void CheckWrite(const std::shared_ptr<ConfigStoreObject>& object, std::uint32_t word) {
    if (object == nullptr) throw ConfigStoreException("There is no object to write");
    if (word != 0) throw ConfigStoreException("The word of a write is reserved and must be 0");
}

inline void CheckNamespace(const std::string& namespaceName) {
    if (namespaceName.empty()) throw ConfigStoreException("The name of a namespace must not be empty");
}

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_CHECKS_H_
