// The tables of the store's file.

#ifndef ORBCONFIGSTORE_SRC_SCHEMA_H_
#define ORBCONFIGSTORE_SRC_SCHEMA_H_

#include "activity.h"
#include "database.h"

namespace OrbConfigStore {

// Makes the tables in an empty file and leaves it in write-ahead mode.
void CreateSchema(Database& database);

// Sets what holds for one connection only: durable commits and working references. Changes nothing, and throws as
// `CheckSchema` does, if the file is not a store of this library.
void PrepareConnection(Database& database, const Activity& activity);

// Throws ConfigStoreException unless the file is a store that this library can read and write. Called again inside
// each transaction: a newer library may have changed the file since.
void CheckSchema(Database& database, const Activity& activity);

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_SCHEMA_H_
