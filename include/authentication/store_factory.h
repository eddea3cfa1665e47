// Creates authentication stores by name.
//
// The library builds one factory when it is loaded and registers its own stores with it, so every caller finds it at
// `Singleton<AuthenticationStoreFactory>::_instance`:
//
//     AuthenticationStoreFactory& factory = *Singleton<AuthenticationStoreFactory>::_instance;
//     for (const std::string& name : factory.GetRegisteredStores()) ...   // "Active Directory", "None"
//     std::unique_ptr<AuthenticationStore> store = factory.CreateInstance("None");
//
// Threads: `CreateInstance` and `GetRegisteredStores` may be called from any thread at once. `RegisterType` takes no
// lock; call it before other threads use the factory.

#ifndef NIMBREL_AUTHENTICATION_STORE_FACTORY_H_
#define NIMBREL_AUTHENTICATION_STORE_FACTORY_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "authentication/export.h"
#include "authentication/stores.h"

namespace nimbrel::authentication {

// Where the one object of type T is found; null while there is none.
template <typename T>
class NIMAUTH_EXPORT Singleton {
 public:
    static T* _instance;
};

// Creates a store. What it throws reaches the caller of `CreateInstance`.
using StoreConstructor = std::unique_ptr<AuthenticationStore> (*)();

// The `StoreConstructor` of a store type. `ActiveDirectoryStore` gets a wait of 60 seconds per query; any other type is
// built by its default constructor.
template <typename T>
std::unique_ptr<AuthenticationStore> Constructor() {
    return std::make_unique<T>();
}

class ActiveDirectoryStore;
template <>
NIMAUTH_EXPORT std::unique_ptr<AuthenticationStore> Constructor<ActiveDirectoryStore>();

class NIMAUTH_EXPORT AuthenticationStoreFactory {
 public:
    // Publishes itself as the singleton and registers "Active Directory" and "None". If that fails nothing stays
    // published and the failure propagates.
    AuthenticationStoreFactory();
    AuthenticationStoreFactory(const AuthenticationStoreFactory&) = delete;
    AuthenticationStoreFactory& operator=(const AuthenticationStoreFactory&) = delete;

    // Withdraws the singleton.
    ~AuthenticationStoreFactory();

    // Adds a store kind. A name that is registered already keeps its constructor, and nothing is reported.
    void RegisterType(const std::string& name, StoreConstructor constructor);

    // A new store, or an empty pointer if no store has exactly that name. Creating the directory store loads its
    // provider and throws what that throws (see directory_store.h).
    std::unique_ptr<AuthenticationStore> CreateInstance(const std::string& name);

    // All names, in byte order.
    std::vector<std::string> GetRegisteredStores() const;

 private:
    std::map<std::string, StoreConstructor> _registry;
};

extern template class Singleton<AuthenticationStoreFactory>;

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_STORE_FACTORY_H_
