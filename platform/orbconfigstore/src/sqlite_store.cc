#include "sqlite_store.h"

#include <pthread.h>

#include <utility>

#include "checks.h"
#include "database_file.h"
#include "internal/no_cancellation.h"
#include "schema.h"

namespace OrbConfigStore {
namespace {

// Held during each operation and during each fork of this process; see the header. Nothing else is locked, and no foreign
// code called, while it is held. It is a plain pthread mutex, which needs no construction and no destruction: a thread
// may still be in the store while the process exits.
pthread_mutex_t operationMutex = PTHREAD_MUTEX_INITIALIZER;

void LockOperations() { pthread_mutex_lock(&operationMutex); }
void UnlockOperations() { pthread_mutex_unlock(&operationMutex); }

// When the library is loaded: a fork that has begun does not run what is registered after that. And before the libraries
// that use this one register theirs: what they hold around an operation is then taken first.
__attribute__((constructor(101))) void RegisterForForks() {
    pthread_atfork(LockOperations, UnlockOperations, UnlockOperations);
}

class Operation {
 public:
    Operation() { LockOperations(); }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    ~Operation() { UnlockOperations(); }

 private:
    const nimbrel::internal::NoCancellation _noCancellation;
};

}  // namespace

SqliteStore::SqliteStore(std::string path, std::string namespaceName)
    : _path(std::move(path)), _namespace(std::move(namespaceName)) {}

std::shared_ptr<ConfigStoreObject> SqliteStore::GetObject(const ConfigStoreObjectId& id) {
    const Activity activity = Doing("read", id);
    const Operation operation;
    const std::string path = ResolveFolder(_path, activity);
    if (!CheckDatabaseFile(path, activity)) return nullptr;

    Database database(path, activity);
    PrepareConnection(database, activity);
    Transaction transaction(database, Transaction::Kind::kRead);
    CheckSchema(database, activity);
    CheckWholePages(database, path, activity);
    auto object = Read(database, id);
    transaction.Commit();
    return object;
}

void SqliteStore::SetObject(const std::shared_ptr<ConfigStoreObject>& object, std::uint32_t& word) {
    CheckWrite(object, word);
    const Activity activity = Doing("write", object->GetId());
    const Operation operation;
    std::string path = ResolveFolder(_path, activity);
    if (!CheckDatabaseFile(path, activity)) {
        CreateDatabaseFile(_path, activity);
        path = ResolveFolder(_path, activity);
    }

    Database database(path, activity);
    PrepareConnection(database, activity);
    Transaction transaction(database, Transaction::Kind::kWrite);
    CheckSchema(database, activity);
    CheckWholePages(database, path, activity);
    Delete(database, object->GetId());
    Insert(database, *object);
    transaction.Commit();
}

void SqliteStore::RemoveObject(const ConfigStoreObjectId& id) {
    const Activity activity = Doing("remove", id);
    const Operation operation;
    const std::string path = ResolveFolder(_path, activity);
    if (!CheckDatabaseFile(path, activity)) return;

    Database database(path, activity);
    PrepareConnection(database, activity);
    Transaction transaction(database, Transaction::Kind::kWrite);
    CheckSchema(database, activity);
    CheckWholePages(database, path, activity);
    Delete(database, id);
    transaction.Commit();
}

std::shared_ptr<ConfigStoreObject> SqliteStore::Read(Database& database, const ConfigStoreObjectId& id) const {
    Statement find(database,
                   "SELECT id FROM object WHERE namespace = ? AND component = ? AND object_group = ? AND key = ?");
    find.BindText(_namespace).BindText(id.Component()).BindText(id.Group()).BindText(id.Key());
    if (!find.Step()) return nullptr;

    auto object = std::make_shared<ConfigStoreObject>(id);
    Statement values(database, "SELECT name, value FROM value WHERE object = ?");
    values.BindNumber(find.Number(0));
    while (values.Step()) object->SetValue(values.Bytes(0).c_str(), values.Bytes(1));
    return object;
}

// The object's values go with it.
void SqliteStore::Delete(Database& database, const ConfigStoreObjectId& id) const {
    Statement statement(database,
                        "DELETE FROM object WHERE namespace = ? AND component = ? AND object_group = ? AND key = ?");
    statement.BindText(_namespace).BindText(id.Component()).BindText(id.Group()).BindText(id.Key()).Step();
}

void SqliteStore::Insert(Database& database, const ConfigStoreObject& object) const {
    const ConfigStoreObjectId& id = object.GetId();
    Statement insert(database, "INSERT INTO object (namespace, component, object_group, key) VALUES (?, ?, ?, ?)");
    insert.BindText(_namespace).BindText(id.Component()).BindText(id.Group()).BindText(id.Key()).Step();

    const std::int64_t row = sqlite3_last_insert_rowid(database.Handle());
    for (const auto& [name, value] : object.Values()) {
        Statement statement(database, "INSERT INTO value (object, name, value) VALUES (?, ?, ?)");
        statement.BindNumber(row).BindText(name).BindBlob(value).Step();
    }
}

Activity SqliteStore::Doing(const char* verb, const ConfigStoreObjectId& id) const {
    return {_path, std::string(verb) + " the object " + id.Component() + "/" + id.Group() + "/" + id.Key()};
}

}  // namespace OrbConfigStore
