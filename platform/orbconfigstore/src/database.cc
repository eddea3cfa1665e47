#include "database.h"

namespace OrbConfigStore {
namespace {

constexpr int kLockWaitMilliseconds = 10'000;

// SQLite's text, with the system's where a system call was the reason.
std::string Reason(sqlite3* handle, int result) {
    std::string reason = sqlite3_errmsg(handle);
    const int kind = result & 0xff;
    const int systemError = sqlite3_system_errno(handle);
    if ((kind != SQLITE_IOERR && kind != SQLITE_CANTOPEN) || systemError == 0) return reason;
    return reason + " (" + std::generic_category().message(systemError) + ")";
}

// A null pointer would be bound as NULL, which no column accepts.
const char* DataOf(std::string_view bytes) { return bytes.data() == nullptr ? "" : bytes.data(); }

}  // namespace

Database::Database(const std::string& path, const Activity& activity) : _activity(activity) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &handle, kFlags, nullptr);
    _handle.reset(handle);
    if (handle == nullptr) _activity.Fail(sqlite3_errstr(result));
    Check(result);
    Check(sqlite3_busy_timeout(handle, kLockWaitMilliseconds));
}

void Database::Check(int result) {
    if (result != SQLITE_OK) _activity.Fail(Reason(_handle.get(), result));
}

void Database::Execute(const char* sql) { Check(sqlite3_exec(_handle.get(), sql, nullptr, nullptr, nullptr)); }

std::int64_t Database::QueryNumber(const char* sql) {
    Statement statement(*this, sql);
    return statement.Step() ? statement.Number(0) : 0;
}

Statement::Statement(Database& database, const char* sql) : _database(database) {
    sqlite3_stmt* handle = nullptr;
    _database.Check(sqlite3_prepare_v2(_database.Handle(), sql, -1, &handle, nullptr));
    _handle.reset(handle);
}

Statement& Statement::BindText(std::string_view text) {
    _database.Check(
        sqlite3_bind_text64(_handle.get(), ++_bound, DataOf(text), text.size(), SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

Statement& Statement::BindBlob(std::string_view bytes) {
    _database.Check(sqlite3_bind_blob64(_handle.get(), ++_bound, DataOf(bytes), bytes.size(), SQLITE_STATIC));
    return *this;
}

Statement& Statement::BindNumber(std::int64_t number) {
    _database.Check(sqlite3_bind_int64(_handle.get(), ++_bound, number));
    return *this;
}

bool Statement::Step() {
    const int result = sqlite3_step(_handle.get());
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) _database.Check(result);
    return false;
}

std::string Statement::Bytes(int column) const {
    const void* const data = sqlite3_column_blob(_handle.get(), column);
    const int size = sqlite3_column_bytes(_handle.get(), column);
    return data == nullptr ? std::string()
                           : std::string(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

std::int64_t Statement::Number(int column) const { return sqlite3_column_int64(_handle.get(), column); }

// A write takes its lock at once: a transaction that read first could find that another process wrote in between, and
// would then fail without waiting.
Transaction::Transaction(Database& database, Kind kind) : _database(database) {
    _database.Execute(kind == Kind::kWrite ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
    if (_open) sqlite3_exec(_database.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::Commit() {
    _database.Execute("COMMIT");
    _open = false;
}

}  // namespace OrbConfigStore
