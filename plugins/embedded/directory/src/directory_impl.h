// What the parts of `Directory` share: a call's turn on the connection, and the rows they look up.

#ifndef NIMBREL_EMBEDDED_DIRECTORY_IMPL_H_
#define NIMBREL_EMBEDDED_DIRECTORY_IMPL_H_

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database.h"
#include "embeddeddirectory/directory.h"
#include "names.h"

namespace nimbrel::embedded {

using RowId = std::int64_t;

// One call's turn: the connection for itself and a transaction. Ends with what `Commit` made durable, or with nothing.
class Turn {
 public:
    Turn(std::mutex& lock, const Database& database, Transaction::Kind kind)
        : _lock(lock), _database(database), _transaction(database, kind) {}

    const Database& Db() const { return _database; }
    void Commit() { _transaction.Commit(); }

 private:
    std::lock_guard<std::mutex> _lock;
    const Database& _database;
    Transaction _transaction;
};

class DirectoryConnection {
 public:
    explicit DirectoryConnection(Database database) : _database(std::move(database)) {}

    Turn Read() { return {_lock, _database, Transaction::Kind::Read}; }
    Turn Write() { return {_lock, _database, Transaction::Kind::Write}; }

 private:
    // Guards the connection. Never held while a password is hashed.
    std::mutex _lock;
    Database _database;
};

class Directory::Impl : public DirectoryConnection {
 public:
    Impl(Database database, bool isHosts) : DirectoryConnection(std::move(database)), _isHosts(isHosts) {}

    // Called outside a turn, after a change of who is in the directory.
    void Publish() const noexcept;

 private:
    const bool _isHosts;  // the file that the host itself uses
};

struct DomainRow {
    RowId id = 0;
    DomainInfo info;
};

struct UserRow {
    RowId id = 0;
    RowId domainId = 0;
    UserInfo info;  // without the delegated units
};

struct ComputerRow {
    RowId id = 0;
    RowId domainId = 0;
    std::string name;
    std::optional<RowId> unitId;
    std::string secretHash;
    bool enabled = true;
    bool preStaged = false;
    std::uint32_t keyVersion = 1;
};

struct ComputerBackup {
    DomainInfo domain;
    std::optional<ComputerRow> before;  // unset if there was no account
    std::string name;
    std::string leftHash;  // what the change that is to be undone left behind
};

// --- Domains (directory_domains.cc) ---

std::optional<DomainRow> FindDomainRow(const Database& db, const std::string& domain);
// Throws 1212 (malformed), 1355 (unknown).
DomainRow RequireDomain(const Database& db, const std::string& domain);
// Throws 1355 too if none of its controllers is reachable.
DomainRow RequireReachableDomain(const Database& db, const std::string& domain);
bool HasReachableController(const Database& db, RowId domainId);
std::vector<DomainInfo> ReadDomains(const Database& db);

// A list of one domain's things or, for an empty name, of every domain's.
std::optional<RowId> DomainFilter(const Database& db, const std::string& domain);

// --- Users (directory_users.cc) ---

std::optional<UserRow> FindUserRow(const Database& db, RowId domainId, const std::string& name);
// Logs the user on as `Directory::Authenticate` says; takes turns of its own.
UserRow AuthenticateRow(DirectoryConnection& connection, const std::string& domain, const UserCredentials& credentials);
// True if the user may write computer accounts of the domain in the unit (unset: in the default container).
bool MayWriteComputers(const Database& db, const UserRow& user, RowId domainId, std::optional<RowId> unitId);
// Throws 5 unless the user may.
void RequireRight(const Database& db, const UserRow& user, RowId domainId, std::optional<RowId> unitId);
std::vector<UserInfo> ReadUsers(const Database& db, std::optional<RowId> domainId);

// --- Organizational units (directory_units.cc) ---

// The row of a unit; unset for the default container. Throws 267 (malformed), 2 (not there).
std::optional<RowId> RequireUnit(const Database& db, const DomainRow& domain, std::string_view unit);
// The names of a unit from the outermost inwards; empty for the default container.
UnitNames UnitNamesOf(const Database& db, std::optional<RowId> unitId);
std::vector<OrganizationalUnitInfo> ReadUnits(const Database& db, std::optional<RowId> domainId);

// --- Computers (directory_computers.cc) ---

std::optional<ComputerRow> FindComputerRow(const Database& db, RowId domainId, const std::string& name);
// `name` may end in "$". Throws 1317.
ComputerRow RequireComputer(const Database& db, const DomainRow& domain, const std::string& name);
// Adds a pre-staged account. Throws 1316.
ComputerInfo InsertPreStaged(const Database& db, const DomainRow& domain, ComputerRow computer);
ComputerInfo ToInfo(const Database& db, const ComputerRow& row, const DomainInfo& domain);
void InsertComputer(const Database& db, const ComputerRow& row);
// Writes the unit, secret, state and key version of the row with the same id.
void UpdateComputer(const Database& db, const ComputerRow& row);
void DeleteComputerRow(const Database& db, RowId id);
std::vector<ComputerInfo> ReadComputers(const Database& db, std::optional<RowId> domainId);

// --- Trusts and controllers (directory_trusts.cc, directory_controllers.cc) ---

std::vector<TrustInfo> ReadTrusts(const Database& db, std::optional<RowId> domainId);
void InsertController(const Database& db, RowId domainId, const ControllerInfo& controller);
std::vector<ControllerInfo> ReadControllers(const Database& db, std::optional<RowId> domainId);

// --- Rehearsals (directory_rehearsals.cc) ---

std::vector<RehearsalInfo> ReadRehearsals(const Database& db);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DIRECTORY_IMPL_H_
