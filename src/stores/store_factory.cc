#include "authentication/store_factory.h"

#include "authentication/directory_store.h"

namespace nimbrel::authentication {
namespace {

constexpr int kDirectoryStoreTimeout = 60;  // seconds

}  // namespace

template <typename T>
T* Singleton<T>::_instance = nullptr;

template class Singleton<AuthenticationStoreFactory>;

template <>
std::unique_ptr<AuthenticationStore> Constructor<ActiveDirectoryStore>() {
    return std::make_unique<ActiveDirectoryStore>(kDirectoryStoreTimeout);
}

AuthenticationStoreFactory::AuthenticationStoreFactory() {
    Singleton<AuthenticationStoreFactory>::_instance = this;
    try {
        RegisterType("Active Directory", Constructor<ActiveDirectoryStore>);
        RegisterType("None", Constructor<NoRemoteAuthenticationStore>);
    } catch (...) {
        // Compensate: a factory that is only half filled must not stay published.
        _registry.clear();
        Singleton<AuthenticationStoreFactory>::_instance = nullptr;
        throw;
    }
}

AuthenticationStoreFactory::~AuthenticationStoreFactory() {
    _registry.clear();
    Singleton<AuthenticationStoreFactory>::_instance = nullptr;
}

void AuthenticationStoreFactory::RegisterType(const std::string& name, StoreConstructor constructor) {
    _registry.emplace(name, constructor);
}

std::unique_ptr<AuthenticationStore> AuthenticationStoreFactory::CreateInstance(const std::string& name) {
    const auto entry = _registry.find(name);
    return entry == _registry.end() ? nullptr : entry->second();
}

std::vector<std::string> AuthenticationStoreFactory::GetRegisteredStores() const {
    std::vector<std::string> names;
    names.reserve(_registry.size());
    for (const auto& [name, constructor] : _registry) names.push_back(name);
    return names;
}

namespace {

// The process's factory: built when the library is loaded, destroyed at exit.
AuthenticationStoreFactory theFactory;

}  // namespace

}  // namespace nimbrel::authentication
