// One connection to one of the embedded provider's SQLite files: how it is opened and created, its statements and
// transactions.
//
// Threads: a connection and everything made from it is used by one thread at a time.
// Errors: `DirectoryError` (1359; 5 where the file may not be used), `std::bad_alloc`.

#ifndef NIMBREL_EMBEDDED_DATABASE_H_
#define NIMBREL_EMBEDDED_DATABASE_H_

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "embeddeddirectory/directory_types.h"

namespace nimbrel::embedded {

// What a file of one kind must be. A file with another application id or version is refused, never converted.
struct FileFormat {
    const char* what;  // "embedded directory", for messages
    std::int32_t applicationId;
    std::int32_t version;
    const char* schema;
};

// Look-ups read, never write, and wait a fraction of a second at most. Pages hold password hashes: few are kept.
enum class Access { Change, LookUp, StoppableLookUp };

Access AccessOf(OpenMode mode);

class Statement {
 public:
    // Parameters are bound in order, 1 first. Texts are copied by SQLite.
    Statement& Bind(std::string_view text);
    Statement& Bind(std::int64_t number);
    Statement& Bind(std::optional<std::int64_t> number);
    // For secrets: bound without a copy; `text` must outlive the statement's use.
    Statement& BindInPlace(std::string_view text);

    // True while there is a row.
    bool Step();
    // Runs a statement that gives no row.
    void Run() { Step(); }

    std::string Text(int column) const;
    std::string_view TextInPlace(int column) const;
    std::int64_t Number(int column) const;
    bool Flag(int column) const { return Number(column) != 0; }
    std::optional<std::int64_t> OptionalNumber(int column) const;

 private:
    friend class Database;
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    Statement(sqlite3* connection, const std::string& name, std::string_view sql);
    void Check(int result) const;

    sqlite3* _connection;
    const std::string& _name;
    std::unique_ptr<sqlite3_stmt, Finalizer> _statement;
    int _nextParameter = 1;
};

class Database {
 public:
    // Unset if there is no such file.
    static std::optional<Database> OpenExisting(const std::string& path, const FileFormat& format,
                                                Access access = Access::Change);
    // A new file is filled under a name of its own and then linked in: it appears complete or not at all, and of two
    // creators one wins and both go on with its file.
    static Database OpenOrCreate(const std::string& path, const FileFormat& format);

    Statement Prepare(std::string_view sql) const { return {_connection.get(), *_name, sql}; }
    void Execute(const char* sql) const;
    // Rows that the last statement changed.
    int Changes() const { return sqlite3_changes(_connection.get()); }
    std::int64_t LastId() const { return sqlite3_last_insert_rowid(_connection.get()); }

 private:
    struct Closer {
        void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
    };
    Database(const std::string& path, const FileFormat& format);
    Database(const std::string& file, int flags, const std::string& path, const FileFormat& format);
    static Database OpenToChange(const std::string& path, const FileFormat& format);
    static Database OpenToLookUp(const std::string& path, const FileFormat& format, Access access);
    static Database OpenReadOnly(const std::string& path, const FileFormat& format, const char* parameters);
    static void Create(const std::string& path, const FileFormat& format);
    static void Fill(const std::string& path, const FileFormat& format);
    void CheckFormat(const FileFormat& format) const;

    // "embedded directory '/path'"; on the heap, because statements refer to it.
    std::unique_ptr<const std::string> _name;
    std::unique_ptr<sqlite3, Closer> _connection;
};

// Rolled back unless committed.
class Transaction {
 public:
    enum class Kind { Read, Write };

    Transaction(const Database& database, Kind kind);
    Transaction(Transaction&& other) noexcept;
    Transaction& operator=(Transaction&&) = delete;
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    void Commit();

 private:
    const Database* _database;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DATABASE_H_
