#include "schema.h"

#include <cstdint>
#include <string>

namespace OrbConfigStore {
namespace {

// "ORBC" in SQLite's header: tells the store from any other SQLite file.
constexpr std::int64_t kApplicationId = 0x4F524243;
constexpr std::int64_t kSchemaVersion = 1;

constexpr char kSchema[] =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE object ("
    "  id           INTEGER PRIMARY KEY,"
    "  namespace    TEXT NOT NULL,"
    "  component    TEXT NOT NULL,"
    "  object_group TEXT NOT NULL,"
    "  key          TEXT NOT NULL,"
    "  UNIQUE (namespace, component, object_group, key));"
    "CREATE TABLE value ("
    "  object INTEGER NOT NULL REFERENCES object (id) ON DELETE CASCADE,"
    "  name   TEXT NOT NULL,"
    "  value  BLOB NOT NULL,"
    "  PRIMARY KEY (object, name)) WITHOUT ROWID;"
    "PRAGMA application_id = 0x4F524243;"
    "PRAGMA user_version = 1;"
    "COMMIT;";

}  // namespace

void CreateSchema(Database& database) {
    database.Execute("PRAGMA synchronous = FULL; PRAGMA encoding = 'UTF-8'");
    database.Execute(kSchema);
    database.Execute("PRAGMA journal_mode = WAL");
    // The first use of the log, which needs memory that processes share: where there is none, no store is made.
    database.Execute("BEGIN IMMEDIATE; COMMIT");
}

void PrepareConnection(Database& database, const Activity& activity) {
    CheckSchema(database, activity);
    database.Execute("PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA trusted_schema = OFF");
    // A file that a backup tool wrote back may have lost the write-ahead mode; where it has it, this changes nothing.
    database.Execute("PRAGMA journal_mode = WAL");
}

void CheckSchema(Database& database, const Activity& activity) {
    if (database.QueryNumber("PRAGMA application_id") != kApplicationId) {
        activity.Fail("the file is a database, but not a configuration store");
    }
    const std::int64_t version = database.QueryNumber("PRAGMA user_version");
    if (version == kSchemaVersion) return;
    activity.Fail("the store has schema version " + std::to_string(version) + " and this library knows version " +
                  std::to_string(kSchemaVersion) + (version > kSchemaVersion ? "; a newer library wrote it" : ""));
}

}  // namespace OrbConfigStore
