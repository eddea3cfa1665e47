// The configuration store in one SQLite file.
//
// Each operation opens the file, runs one transaction and closes the file again. So nothing is held between operations:
// the file may be replaced by a backup, and a forked process starts with a clean slate. SQLite itself does not survive a
// fork while a connection is open (the child would inherit its idea of who holds which lock), so operations of one
// process run one at a time and a fork waits for the running one.

#ifndef ORBCONFIGSTORE_SRC_SQLITE_STORE_H_
#define ORBCONFIGSTORE_SRC_SQLITE_STORE_H_

#include <memory>
#include <string>

#include "activity.h"
#include "database.h"
#include "orbconfigstore/config_store.h"

namespace OrbConfigStore {

class SqliteStore : public ConfigStore {
 public:
    SqliteStore(std::string path, std::string namespaceName);

    std::shared_ptr<ConfigStoreObject> GetObject(const ConfigStoreObjectId& id) override;
    void SetObject(const std::shared_ptr<ConfigStoreObject>& object, std::uint32_t& word) override;
    void RemoveObject(const ConfigStoreObjectId& id) override;

 private:
    std::shared_ptr<ConfigStoreObject> Read(Database& database, const ConfigStoreObjectId& id) const;
    void Delete(Database& database, const ConfigStoreObjectId& id) const;
    void Insert(Database& database, const ConfigStoreObject& object) const;
    Activity Doing(const char* verb, const ConfigStoreObjectId& id) const;

    const std::string _path;
    const std::string _namespace;
};

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_SQLITE_STORE_H_
