#include <memory>
#include <stdexcept>

#include "authentication/configuration.h"
#include "authentication/exceptions.h"
#include "authentication/store_factory.h"
#include "authentication/stores.h"

namespace nimbrel::authentication {
namespace {

// Deactivates the store called `name` through an instance of its own, whatever instances the caller holds.
void MakeStoreInactive(const std::string& name) {
    AuthenticationStoreFactory* const factory = Singleton<AuthenticationStoreFactory>::_instance;
    // While the process exits there is no factory any more, which knows no store.
    const std::unique_ptr<AuthenticationStore> store = factory == nullptr ? nullptr : factory->CreateInstance(name);
    if (store == nullptr) throw UnknownRemoteAuthenticationStoreException(name);

    auto* const remote = dynamic_cast<RemoteAuthenticationStore*>(store.get());
    if (remote == nullptr) throw InvalidRemoteAuthenticationStoreException(name);
    remote->MakeInactive();
}

}  // namespace

NoRemoteAuthenticationStoreConfiguration::~NoRemoteAuthenticationStoreConfiguration() = default;

NoRemoteAuthenticationStore::NoRemoteAuthenticationStore() = default;
NoRemoteAuthenticationStore::~NoRemoteAuthenticationStore() = default;

StoreConfiguration* NoRemoteAuthenticationStore::GetStoreConfiguration() const {
    return new NoRemoteAuthenticationStoreConfiguration(_configuration);
}

std::string NoRemoteAuthenticationStore::GetDisplayName() const { return "None"; }

void NoRemoteAuthenticationStore::MakeActive() {
    AuthenticationConfiguration configuration;
    std::string& record = configuration["remote-authentication-store"];
    const std::string previous = record;
    if (previous == GetDisplayName()) return;

    record = GetDisplayName();
    configuration.Write();
    // From here on the record says "None" whatever happens, which repairs a record that names no known store.
    MakeStoreInactive(previous);
}

void NoRemoteAuthenticationStore::MakeInactive() { throw std::runtime_error("Attempted to disable None Store"); }

}  // namespace nimbrel::authentication
