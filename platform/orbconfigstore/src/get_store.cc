#include <memory>
#include <string>

#include "checks.h"
#include "orbconfigstore/config_store.h"
#include "sqlite_store.h"

namespace OrbConfigStore {

std::shared_ptr<ConfigStore> ConfigStore::GetStore(const std::string& namespaceName) {
    CheckNamespace(namespaceName);
    return std::make_shared<SqliteStore>("/var/lib/nimbrel/configstore.db", namespaceName);
}

}  // namespace OrbConfigStore
