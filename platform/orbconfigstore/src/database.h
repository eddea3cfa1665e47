// Guards around SQLite's connection, statement and transaction that turn its result codes into ConfigStoreException.
//
// Threads: everything here belongs to one thread.

#ifndef ORBCONFIGSTORE_SRC_DATABASE_H_
#define ORBCONFIGSTORE_SRC_DATABASE_H_

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "activity.h"

namespace OrbConfigStore {

// An open connection. Statements and transactions must end before it.
class Database {
 public:
    // Opens the existing file `path`, which must not be reached through any symbolic link. Waits up to ten seconds
    // for locks of others. `activity` is what the messages of this connection say, and must outlive it.
    Database(const std::string& path, const Activity& activity);

    // Runs statements without parameters and results.
    void Execute(const char* sql);

    // The number that a statement without parameters answers in its first column.
    std::int64_t QueryNumber(const char* sql);

    // Throws ConfigStoreException with SQLite's text unless `result` is success.
    void Check(int result);

    sqlite3* Handle() const { return _handle.get(); }

 private:
    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close(handle); }
    };

    const Activity& _activity;
    std::unique_ptr<sqlite3, Close> _handle;
};

// A prepared statement that runs once. Parameters and columns are texts of any bytes.
class Statement {
 public:
    Statement(Database& database, const char* sql);

    // Binds the next parameter, which must live until the statement has run.
    Statement& BindText(std::string_view text);
    Statement& BindBlob(std::string_view bytes);
    Statement& BindNumber(std::int64_t number);

    // Goes to the next row; false when there is none.
    bool Step();

    std::string Bytes(int column) const;
    std::int64_t Number(int column) const;

 private:
    struct Finalize {
        void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
    };

    Database& _database;
    std::unique_ptr<sqlite3_stmt, Finalize> _handle;
    int _bound = 0;
};

// A transaction that is rolled back unless `Commit` returns.
class Transaction {
 public:
    enum class Kind { kRead, kWrite };

    Transaction(Database& database, Kind kind);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    void Commit();

 private:
    Database& _database;
    bool _open = true;
};

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_DATABASE_H_
