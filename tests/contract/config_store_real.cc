// The SQLite store behind its public interface, at its real path.

#include "config_store_contract.h"
#include "host.h"

namespace {

const auto* const kPrivateRoot = host::RequirePrivateRoot();

struct RealStore {
    static std::shared_ptr<ConfigStore> Reopen(const std::string& namespaceName) {
        return ConfigStore::GetStore(namespaceName);
    }
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Sqlite, ConfigStoreContract, RealStore);
