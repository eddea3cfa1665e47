#include "authentication/directory_store.h"

#include "authentication/configuration.h"
#include "authentication/exceptions.h"

namespace nimbrel::authentication {
namespace {

std::string ReadProviderName() {
    try {
        const ProviderConfiguration configuration;
        return configuration["provider"];
    } catch (const IOError&) {
        throw InvalidActiveDirectoryProviderException("(none installed)");
    }
}

std::shared_ptr<const ActiveDirectoryProvider> LoadProvider(const std::string& name) {
    if (name.empty()) throw InvalidActiveDirectoryProviderException("(unset)");
    try {
        return std::make_shared<const ActiveDirectoryProvider>(name);
    } catch (const IOError&) {
        throw InvalidActiveDirectoryProviderException(name);
    }
}

}  // namespace

ActiveDirectoryStore::ActiveDirectoryStore(int timeout)
    : _timeout(timeout), _provider(LoadProvider(ReadProviderName())) {}
ActiveDirectoryStore::~ActiveDirectoryStore() = default;

const ADCache& ActiveDirectoryStore::Cache() { return _adCache; }

std::string ActiveDirectoryStore::GetDisplayName() const { return "Active Directory"; }

void ActiveDirectoryStore::MakeActive() {
    AuthenticationConfiguration configuration;
    configuration["remote-authentication-store"] = GetDisplayName();
    configuration.Write();
    UpdateCache(std::nullopt);
}

// The record is the next store's to change, and leaving the domain is a decision of its own.
void ActiveDirectoryStore::MakeInactive() { UpdateCache(std::nullopt); }

}  // namespace nimbrel::authentication
