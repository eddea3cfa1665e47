#include "authentication/configuration.h"
#include "authentication/stores.h"

namespace nimbrel::authentication {

StoreConfiguration::StoreConfiguration() = default;
StoreConfiguration::StoreConfiguration(const StoreConfiguration&) = default;
StoreConfiguration& StoreConfiguration::operator=(const StoreConfiguration&) = default;
StoreConfiguration::~StoreConfiguration() = default;

AuthenticationStore::~AuthenticationStore() = default;
RemoteAuthenticationStore::~RemoteAuthenticationStore() = default;
DirectoryStore::~DirectoryStore() = default;

bool RemoteAuthenticationStore::IsActive() const {
    const AuthenticationConfiguration configuration;
    return configuration["remote-authentication-store"] == GetDisplayName();
}

}  // namespace nimbrel::authentication
