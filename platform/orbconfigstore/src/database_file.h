// The store's file as the file system sees it: its folder, owner's eyes only, whole from the first moment, and never a
// symbolic link.
//
// A new store appears complete: its schema is written into a temporary file next to it, which then gets the store's name.
// An empty file under that name is therefore damage, not a store that is being made. What a killed process left of its
// temporary file, the next one to make a store or to use it removes.
//
// Threads: the caller sees to it that this process has no connection to the store open meanwhile; closing any descriptor
// of the file would drop the connection's locks.

#ifndef ORBCONFIGSTORE_SRC_DATABASE_FILE_H_
#define ORBCONFIGSTORE_SRC_DATABASE_FILE_H_

#include <string>

#include "activity.h"
#include "database.h"

namespace OrbConfigStore {

// `path` with the symbolic links of its folders resolved; the file itself is left as named. The path as it is when the
// folder does not exist.
std::string ResolveFolder(const std::string& path, const Activity& activity);

// Makes sure that there is a plain file that only its owner may read; takes the rights of others away.
//
// Returns false when there is no file of this name. Throws ConfigStoreException if it is something else than a plain
// file with contents, or may not be opened.
bool CheckDatabaseFile(const std::string& path, const Activity& activity);

// Throws ConfigStoreException if the file was cut in the middle of a page. SQLite takes what is missing for zeros, which
// would read as an object that lost its values. Belongs into a transaction: nobody else can then be taking the file out of
// write-ahead mode. While the write-ahead log holds anything, the file may be behind it, and nothing is checked.
void CheckWholePages(Database& database, const std::string& path, const Activity& activity);

// Makes an empty store, and its folder if it is missing (not the folders above). Does nothing if another process has just
// made one.
void CreateDatabaseFile(const std::string& path, const Activity& activity);

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_DATABASE_FILE_H_
