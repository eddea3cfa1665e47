// Where the host takes its users from besides its own accounts.
//
// An authentication store is one such source. The host has exactly one active remote store at a time: "None" (local
// accounts only) or "Active Directory". The choice is recorded by display name in
// /etc/nimbrel/nimauth/authentication.conf and nowhere else, so two objects of one store always agree:
//
//     auto store = Singleton<AuthenticationStoreFactory>::_instance->CreateInstance("Active Directory");
//     if (!store->IsActive()) store->MakeActive();
//
// Making a store active changes that record and refreshes the directory cache. It changes no PAM or name-service file;
// whoever wires logins does that.
//
// Threads: stores may be used from any thread, but activation takes no lock: callers let one activation end before they
// start the next.

#ifndef NIMBREL_AUTHENTICATION_STORES_H_
#define NIMBREL_AUTHENTICATION_STORES_H_

#include <string>

#include "authentication/export.h"

namespace nimbrel::authentication {

// Root of the configuration snapshots that stores hand out. Down-cast to the store's own kind.
class NIMAUTH_EXPORT StoreConfiguration {
 public:
    StoreConfiguration();
    StoreConfiguration(const StoreConfiguration&);
    StoreConfiguration& operator=(const StoreConfiguration&);
    virtual ~StoreConfiguration();
};

class NIMAUTH_EXPORT AuthenticationStore {
 public:
    // A new snapshot of the store's own kind, owned by the caller. The directory store asks its provider and waits for
    // it (see directory_store.h).
    virtual StoreConfiguration* GetStoreConfiguration() const = 0;

    // "None" or "Active Directory".
    virtual std::string GetDisplayName() const = 0;

    // Whether the record names this store, byte for byte.
    //
    // Throws `IOError` or `ConfigurationError` if authentication.conf cannot be read, `InvalidKeyException` if it holds
    // no "remote-authentication-store".
    virtual bool IsActive() const = 0;

    // Makes this store the host's store. Throws as `IsActive`, and `IOError` or `FilePermissionError` if the record
    // cannot be written.
    virtual void MakeActive() = 0;

    virtual ~AuthenticationStore();
};

class NIMAUTH_EXPORT RemoteAuthenticationStore : public AuthenticationStore {
 public:
    bool IsActive() const override;
    ~RemoteAuthenticationStore() override;

    // Undoes what `MakeActive` did beyond the record. It never changes the record itself.
    virtual void MakeInactive() = 0;
};

// Common base of the stores that are backed by a directory.
class NIMAUTH_EXPORT DirectoryStore : public RemoteAuthenticationStore {
 public:
    ~DirectoryStore() override;
};

class NIMAUTH_EXPORT NoRemoteAuthenticationStoreConfiguration : public StoreConfiguration {
 public:
    ~NoRemoteAuthenticationStoreConfiguration() override;
};

// Local accounts only: "None".
class NIMAUTH_EXPORT NoRemoteAuthenticationStore : public RemoteAuthenticationStore {
 public:
    NoRemoteAuthenticationStore();

    // An empty `NoRemoteAuthenticationStoreConfiguration`.
    StoreConfiguration* GetStoreConfiguration() const override;
    std::string GetDisplayName() const override;

    // Records "None", then creates the store that was recorded before and makes it inactive. Does nothing if "None" is
    // recorded already. The record stays "None" whatever the later steps throw, so a record that names a store nobody
    // knows is repaired by the first call.
    //
    // Throws, besides what `AuthenticationStore::MakeActive` names: `UnknownRemoteAuthenticationStoreException` if the
    // factory does not know the earlier store, `InvalidRemoteAuthenticationStoreException` if it is not a remote store,
    // and whatever creating it or making it inactive throws.
    void MakeActive() override;

    ~NoRemoteAuthenticationStore() override;

    // Always throws `std::runtime_error` "Attempted to disable None Store": the local-only store stops being active
    // only when another store becomes active.
    void MakeInactive() override;

 private:
    NoRemoteAuthenticationStoreConfiguration _configuration;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_STORES_H_
