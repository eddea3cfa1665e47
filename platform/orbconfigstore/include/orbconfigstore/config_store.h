// The host's configuration store: small settings that outlive a restart and are shared by all components of the host.
//
// A setting lives in an object. An object has an id of three texts (key, group, component) and any number of named
// values; a value is a string of any bytes. Objects are read and written whole:
//
//     auto store = OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace);
//     const OrbConfigStore::ConfigStoreObjectId id("active_directory", "identity", "orb");
//
//     auto object = std::make_shared<OrbConfigStore::ConfigStoreObject>(id);
//     object->SetValue("domain_name", "corp.test");
//     std::uint32_t word = 0;
//     store->SetObject(object, word);
//
//     std::string name;
//     if (auto stored = store->GetObject(id)) stored->GetValue("domain_name", &name);
//
// This library keeps the objects in one SQLite file, /var/lib/nimbrel/configstore.db, which only its owner may read.
//
// Errors: every failure of the store is a ConfigStoreException whose text names the file, what was being done and why it
// failed. A failed write leaves the stored object as it was.
//
// Threads: a store handle may be used by any number of threads and processes at once, and by both sides of a fork. An
// object or an id belongs to whoever holds it and has no lock: many threads may read it, or one may change it. A thread
// that is cancelled in an operation ends after it.

#ifndef ORBCONFIGSTORE_CONFIG_STORE_H_
#define ORBCONFIGSTORE_CONFIG_STORE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "hostmgmt/exceptions.h"

#define ORBCONFIGSTORE_EXPORT __attribute__((visibility("default")))

namespace OrbConfigStore {

// The namespace that all components of the host share.
inline constexpr char sGlobalNamespace[] = "global";

// A failure of the configuration store.
class ORBCONFIGSTORE_EXPORT ConfigStoreException : public HostMgmt::Lib::HostMgmtException {
 public:
    // `message` is what `what()` returns; null is taken as the empty text.
    explicit ConfigStoreException(const char* message);
    ConfigStoreException(const ConfigStoreException&) = default;
    ConfigStoreException& operator=(const ConfigStoreException&) = default;
    ~ConfigStoreException() override;
};

// The name of an object: three texts, compared byte by byte.
class ORBCONFIGSTORE_EXPORT ConfigStoreObjectId {
 public:
    // Throws ConfigStoreException if a text is null. Empty texts are names like any other.
    ConfigStoreObjectId(const char* key, const char* group, const char* component);

    const std::string& Key() const { return _key; }
    const std::string& Group() const { return _group; }
    const std::string& Component() const { return _component; }

    friend bool operator==(const ConfigStoreObjectId& a, const ConfigStoreObjectId& b) {
        return a._key == b._key && a._group == b._group && a._component == b._component;
    }
    // Orders by component, then group, then key.
    friend ORBCONFIGSTORE_EXPORT bool operator<(const ConfigStoreObjectId& a, const ConfigStoreObjectId& b);

 private:
    std::string _key;
    std::string _group;
    std::string _component;
};

// Named values held in memory.
class ORBCONFIGSTORE_EXPORT StoreObject {
 public:
    using ValueMap = std::map<std::string, std::string, std::less<>>;

    StoreObject();
    StoreObject(const StoreObject&);
    StoreObject& operator=(const StoreObject&);
    virtual ~StoreObject();

    // Sets the value `name`, replacing an earlier one. `value` may hold any bytes, NUL included, or none.
    //
    // Throws ConfigStoreException if `name` is null.
    void SetValue(const char* name, std::string_view value);

    // Copies the value `name` into `*value` and returns true. Where the object has no such value, returns false and
    // leaves `*value` alone. A null `value` only asks whether the value is there.
    //
    // Throws ConfigStoreException if `name` is null.
    bool GetValue(const char* name, std::string* value) const;

    // All values by name, in the order of the names' bytes. Lives as long as the object and changes with it.
    const ValueMap& Values() const { return _values; }

 private:
    ValueMap _values;
};

// Named values with the id under which they are stored.
class ORBCONFIGSTORE_EXPORT ConfigStoreObject : public StoreObject {
 public:
    // An object without values. Nothing is stored until `ConfigStore::SetObject`.
    explicit ConfigStoreObject(const ConfigStoreObjectId& id);
    ~ConfigStoreObject() override;

    const ConfigStoreObjectId& GetId() const { return _id; }

 private:
    ConfigStoreObjectId _id;
};

// A handle to the objects of one namespace.
class ORBCONFIGSTORE_EXPORT ConfigStore {
 public:
    // The store of the named namespace; namespaces do not see each other's objects. Opens no file: a store that cannot
    // be used shows at the first operation. The handle may outlive every other one.
    //
    // Throws ConfigStoreException if the name is empty.
    static std::shared_ptr<ConfigStore> GetStore(const std::string& namespaceName);

    ConfigStore(const ConfigStore&) = delete;
    ConfigStore& operator=(const ConfigStore&) = delete;

    // A copy of the stored object, or an empty pointer when there is none. Never creates the store's file.
    virtual std::shared_ptr<ConfigStoreObject> GetObject(const ConfigStoreObjectId& id) = 0;

    // Writes the object whole: on return it is on disk, and values that an earlier object of this id had and this one
    // lacks are gone. Other processes see the old object or the new one, never a mixture.
    //
    // `word` is reserved: it must be 0 and is left alone. Any other number, or an empty pointer, is a
    // ConfigStoreException.
    virtual void SetObject(const std::shared_ptr<ConfigStoreObject>& object, std::uint32_t& word) = 0;

    // Removes the object; does nothing when there is none.
    virtual void RemoveObject(const ConfigStoreObjectId& id) = 0;

    virtual ~ConfigStore();

 protected:
    ConfigStore();
};

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_CONFIG_STORE_H_
