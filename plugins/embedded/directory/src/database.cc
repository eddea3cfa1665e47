#include "database.h"

#include <new>
#include <system_error>
#include <utility>

#include "database_file.h"
#include "embeddeddirectory/directory_error.h"

namespace nimbrel::embedded {
namespace {

constexpr int kBusyMilliseconds = 10'000;
constexpr int kLookUpBusyMilliseconds = 100;
constexpr int kLookUpTries = 3;

constexpr char kConnectionSettings[] =
    "PRAGMA foreign_keys = ON;"
    "PRAGMA synchronous = FULL;"
    "PRAGMA secure_delete = ON;"
    "PRAGMA trusted_schema = OFF;"
    "PRAGMA cell_size_check = ON;"
    "PRAGMA temp_store = MEMORY;";  // SQLite's folder for temporary files is whatever the environment says

std::uint32_t StatusFor(int result, int systemError) {
    switch (result & 0xff) {
        case SQLITE_PERM:
        case SQLITE_READONLY:
            return kStatusAccessDenied;
        case SQLITE_FULL:
            return kStatusDiskFull;
        case SQLITE_CANTOPEN:
        case SQLITE_IOERR:
            return kit::StatusOfFileError(systemError);
        default:
            return kStatusInternalError;
    }
}

[[noreturn]] void Fail(sqlite3* connection, int result, const std::string& name) {
    if ((result & 0xff) == SQLITE_NOMEM) {
        throw std::bad_alloc();
    }
    const int systemError = connection ? sqlite3_system_errno(connection) : 0;
    const char* text = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(result);
    throw DirectoryError(StatusFor(result, systemError), "The " + name + " cannot be used: " + text);
}

// As SQLite reads it: "file:" and the path, in which "?", "#" and "%" mean something.
std::string UriOf(const std::string& path, const char* parameters) {
    std::string uri = "file:";
    for (const char c : path) {
        if (c == '?') {
            uri += "%3f";
        } else if (c == '#') {
            uri += "%23";
        } else if (c == '%') {
            uri += "%25";
        } else {
            uri += c;
        }
    }
    return uri + '?' + parameters;
}

std::string NameOf(const std::string& path, const FileFormat& format) {
    return std::string(format.what) + " '" + path + "'";
}

}  // namespace

Access AccessOf(OpenMode mode) {
    switch (mode) {
        case OpenMode::LookUp:
            return Access::LookUp;
        case OpenMode::StoppableLookUp:
            return Access::StoppableLookUp;
        default:
            return Access::Change;
    }
}

// --- Statement ---

Statement::Statement(sqlite3* connection, const std::string& name, std::string_view sql)
    : _connection(connection), _name(name) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v2(connection, sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
    _statement.reset(statement);
}

void Statement::Check(int result) const {
    if (result != SQLITE_OK) {
        Fail(_connection, result, _name);
    }
}

Statement& Statement::Bind(std::string_view text) {
    Check(sqlite3_bind_text64(_statement.get(), _nextParameter++, text.data() ? text.data() : "", text.size(),
                              SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
}

Statement& Statement::BindInPlace(std::string_view text) {
    Check(sqlite3_bind_text64(_statement.get(), _nextParameter++, text.data() ? text.data() : "", text.size(),
                              SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

Statement& Statement::Bind(std::int64_t number) {
    Check(sqlite3_bind_int64(_statement.get(), _nextParameter++, number));
    return *this;
}

Statement& Statement::Bind(std::optional<std::int64_t> number) {
    if (number) {
        return Bind(*number);
    }
    Check(sqlite3_bind_null(_statement.get(), _nextParameter++));
    return *this;
}

bool Statement::Step() {
    const int result = sqlite3_step(_statement.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        Fail(_connection, result, _name);
    }
    return result == SQLITE_ROW;
}

std::string_view Statement::TextInPlace(int column) const {
    const void* text = sqlite3_column_blob(_statement.get(), column);
    const int size = sqlite3_column_bytes(_statement.get(), column);
    return {static_cast<const char*>(text), static_cast<std::size_t>(size)};
}

std::string Statement::Text(int column) const { return std::string(TextInPlace(column)); }

std::int64_t Statement::Number(int column) const { return sqlite3_column_int64(_statement.get(), column); }

std::optional<std::int64_t> Statement::OptionalNumber(int column) const {
    if (sqlite3_column_type(_statement.get(), column) == SQLITE_NULL) {
        return std::nullopt;
    }
    return Number(column);
}

// --- Database ---

Database::Database(const std::string& file, int flags, const std::string& path, const FileFormat& format)
    : _name(std::make_unique<const std::string>(NameOf(path, format))) {
    sqlite3* connection = nullptr;
    const int always = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE;
    const int result = sqlite3_open_v2(file.c_str(), &connection, flags | always, nullptr);
    _connection.reset(connection);
    if (result != SQLITE_OK) {
        Fail(connection, result, *_name);
    }
    const bool reads = (flags & SQLITE_OPEN_READONLY) != 0;
    sqlite3_busy_timeout(connection, reads ? kLookUpBusyMilliseconds : kBusyMilliseconds);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    Execute(kConnectionSettings);
}

Database::Database(const std::string& path, const FileFormat& format)
    : Database(path, SQLITE_OPEN_READWRITE, path, format) {}

void Database::Execute(const char* sql) const {
    const int result = sqlite3_exec(_connection.get(), sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
        Fail(_connection.get(), result, *_name);
    }
}

void Database::CheckFormat(const FileFormat& format) const {
    auto header = Prepare("SELECT application_id, user_version FROM pragma_application_id, pragma_user_version");
    header.Step();
    if (header.Number(0) != format.applicationId) {
        throw DirectoryError(kStatusInternalError, "The file is no " + *_name);
    }
    if (header.Number(1) != format.version) {
        throw DirectoryError(kStatusInternalError, "The " + *_name + " has version " + header.Text(1) +
                                                       "; this program knows version " +
                                                       std::to_string(format.version));
    }
}

std::optional<Database> Database::OpenExisting(const std::string& path, const FileFormat& format, Access access) {
    const auto real = PrepareExistingFile(path, NameOf(path, format));
    if (!real) {
        return std::nullopt;
    }
    return access == Access::Change ? OpenToChange(*real, format) : OpenToLookUp(*real, format, access);
}

Database Database::OpenToChange(const std::string& path, const FileFormat& format) {
    Database database(path, format);
    database.CheckFormat(format);
    return database;
}

Database Database::OpenReadOnly(const std::string& path, const FileFormat& format, const char* parameters) {
    Database database(UriOf(path, parameters), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, path, format);
    sqlite3_db_config(database._connection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    database.Execute("PRAGMA cache_size = 10");
    database.CheckFormat(format);
    return database;
}

// A connection that opens the index of the log for reading only takes none of the locks with which SQLite sets up and
// clears away a log: only shared ones, which no writer waits for. All connections of one process have the same index, so
// this is for processes that do not write, and for disks that take nothing.
//
// It needs log and index to be there, empty ones too. The last one of those who change the file takes them away, at worst
// just now: once the first statement has run nobody does.
Database Database::OpenToLookUp(const std::string& path, const FileFormat& format, Access access) {
    bool sharedIndex = access == Access::LookUp;
    for (int left = kLookUpTries;; --left) {
        const bool hasLog = MakeLog(path);
        try {
            return OpenReadOnly(path, format, !hasLog ? "immutable=1" : sharedIndex ? "" : "readonly_shm=1");
        } catch (const DirectoryError& error) {
            if (left == 1) {
                throw;
            }
            sharedIndex = sharedIndex && error.Status() != kStatusDiskFull;
        }
    }
}

Database Database::OpenOrCreate(const std::string& path, const FileFormat& format) {
    auto existing = OpenExisting(path, format);
    if (existing) {
        return std::move(*existing);
    }
    Create(path, format);
    existing = OpenExisting(path, format);
    if (!existing) {
        throw DirectoryError(kStatusInternalError, "The " + NameOf(path, format) + " was removed while it was opened");
    }
    return std::move(*existing);
}

void Database::Create(const std::string& path, const FileFormat& format) {
    NewFile file(path, NameOf(path, format));
    Fill(file.TemporaryPath(), format);
    file.Publish();
}

void Database::Fill(const std::string& path, const FileFormat& format) {
    const Database database(path, format);
    Transaction transaction(database, Transaction::Kind::Write);
    database.Execute(format.schema);
    database.Execute(("PRAGMA application_id = " + std::to_string(format.applicationId)).c_str());
    database.Execute(("PRAGMA user_version = " + std::to_string(format.version)).c_str());
    transaction.Commit();
    // Last, so that all is in the file itself, which alone is given its final name: what stood in a log beside it would
    // be lost if the log could not be taken over when the file is closed.
    database.Execute("PRAGMA journal_mode = WAL");
}

// --- Transaction ---

Transaction::Transaction(const Database& database, Kind kind) : _database(&database) {
    database.Execute(kind == Kind::Write ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::Transaction(Transaction&& other) noexcept : _database(std::exchange(other._database, nullptr)) {}

Transaction::~Transaction() {
    if (_database) {
        try {
            _database->Execute("ROLLBACK");
        } catch (...) {
            // SQLite has rolled back by itself where the transaction failed; closing the connection ends the rest.
        }
    }
}

void Transaction::Commit() {
    _database->Execute("COMMIT");
    _database = nullptr;
}

}  // namespace nimbrel::embedded
