#include <utility>

#include "directory_impl.h"
#include "secret_hash.h"

namespace nimbrel::embedded {
namespace {

constexpr std::size_t kMaximumPassword = 256;

constexpr char kColumns[] =
    "SELECT users.id, domain_id, dns_name, users.name, disabled, locked, expired, password_expired, "
    "must_change_password, may_join FROM users JOIN domains ON domains.id = domain_id ";

UserRow ReadRow(const Statement& row) {
    UserRow user;
    user.id = row.Number(0);
    user.domainId = row.Number(1);
    user.info.domain = row.Text(2);
    user.info.name = row.Text(3);
    user.info.number = user.id;
    user.info.flags = {row.Flag(4), row.Flag(5), row.Flag(6), row.Flag(7), row.Flag(8), row.Flag(9)};
    return user;
}

kit::Secret ReadPasswordHash(const Database& db, RowId userId) {
    auto rows = db.Prepare("SELECT password_hash FROM users WHERE id = ?");
    rows.Bind(userId);
    return rows.Step() ? kit::Secret(rows.TextInPlace(0)) : kit::Secret();
}

void BindFlags(Statement& statement, const UserFlags& flags) {
    for (const bool flag : {flags.disabled, flags.locked, flags.expired, flags.passwordExpired,
                            flags.mustChangePassword, flags.mayJoin}) {
        statement.Bind(std::int64_t{flag});
    }
}

UserRow RequireUser(const Database& db, const std::string& domain, const std::string& name) {
    auto user = FindUserRow(db, RequireDomain(db, domain).id, name);
    if (!user) {
        throw DirectoryError(kStatusNoSuchAccount, "There is no user '" + name + "' in the domain '" + domain + "'");
    }
    return std::move(*user);
}

std::string HashPassword(std::string_view password) {
    if (password.empty() || password.size() > kMaximumPassword) {
        throw DirectoryError(kStatusInvalidParameter, "A password takes 1 to 256 bytes");
    }
    return HashSecret(password, HashCost::Password);
}

void WriteDelegation(const Database& db, const DomainRow& domain, RowId userId, const std::vector<std::string>& units) {
    db.Prepare("DELETE FROM delegations WHERE user_id = ?").Bind(userId).Run();
    for (const auto& unit : units) {
        const auto unitId = RequireUnit(db, domain, unit);
        if (!unitId) {
            throw DirectoryError(kStatusInvalidUnitName, "The default container cannot be delegated");
        }
        db.Prepare("INSERT OR IGNORE INTO delegations (user_id, unit_id) VALUES (?, ?)")
            .Bind(userId)
            .Bind(*unitId)
            .Run();
    }
}

std::vector<std::string> ReadDelegation(const Database& db, RowId userId) {
    std::vector<std::string> units;
    auto rows = db.Prepare("SELECT unit_id FROM delegations WHERE user_id = ? ORDER BY unit_id");
    rows.Bind(userId);
    while (rows.Step()) {
        units.push_back(UnitPath(UnitNamesOf(db, rows.Number(0))));
    }
    return units;
}

void InsertUser(const Database& db, const DomainRow& domain, const std::string& name, const std::string& hash,
                const UserFlags& flags, const std::vector<std::string>& delegatedUnits) {
    if (FindUserRow(db, domain.id, name)) {
        throw DirectoryError(kStatusAccountExists, "There is a user '" + name + "' already");
    }
    auto insert = db.Prepare(
        "INSERT INTO users (domain_id, name, password_hash, disabled, locked, expired, password_expired, "
        "must_change_password, may_join) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.Bind(domain.id).Bind(name).Bind(hash);
    BindFlags(insert, flags);
    insert.Run();
    WriteDelegation(db, domain, db.LastId(), delegatedUnits);
}

// --- Log-on ---

[[noreturn]] void FailLogon() {
    throw DirectoryError(kStatusLogonFailure, "The user is unknown or the password is wrong");
}

// A user of another domain of this directory can log on if that domain is trusted.
bool Trusts(const Database& db, const DomainRow& domain, const DomainRow& partner) {
    return db.Prepare("SELECT 1 FROM trusts WHERE domain_id = ? AND partner_dns_name = ? AND direction <> ?")
        .Bind(domain.id)
        .Bind(partner.info.dnsName)
        .Bind(static_cast<std::int64_t>(TrustDirection::Inbound))
        .Step();
}

std::optional<UserRow> FindUserToLogOn(const Database& db, const DomainRow& domain, const QualifiedName& name) {
    if (name.domain.empty()) {
        return FindUserRow(db, domain.id, name.name);
    }
    const auto home = FindDomainRow(db, name.domain);
    if (!home || (home->id != domain.id && !Trusts(db, domain, *home))) {
        return std::nullopt;
    }
    return FindUserRow(db, home->id, name.name);
}

QualifiedName SplitForLogon(std::string_view userName) {
    try {
        return SplitUserName(userName);
    } catch (const DirectoryError&) {
        FailLogon();  // translated: to a domain a malformed user name is an unknown one
    }
}

void CheckFlags(const UserFlags& flags) {
    if (flags.disabled) {
        throw DirectoryError(kStatusAccountDisabled, "The user's account is disabled");
    }
    if (flags.expired) {
        throw DirectoryError(kStatusAccountExpired, "The user's account has expired");
    }
    if (flags.passwordExpired) {
        throw DirectoryError(kStatusPasswordExpired, "The user's password has expired");
    }
    if (flags.mustChangePassword) {
        throw DirectoryError(kStatusPasswordMustChange, "The user must change the password before the first log-on");
    }
}

}  // namespace

std::optional<UserRow> FindUserRow(const Database& db, RowId domainId, const std::string& name) {
    auto rows = db.Prepare(std::string(kColumns) + "WHERE domain_id = ? AND users.name = ?");
    rows.Bind(domainId).Bind(name);
    return rows.Step() ? std::optional(ReadRow(rows)) : std::nullopt;
}

UserRow AuthenticateRow(DirectoryConnection& connection, const std::string& domain,
                        const UserCredentials& credentials) {
    kit::Secret passwordHash;
    const auto user = [&] {
        const Turn turn = connection.Read();
        const DomainRow row = RequireReachableDomain(turn.Db(), domain);
        auto found = FindUserToLogOn(turn.Db(), row, SplitForLogon(credentials.userName));
        if (found) {
            passwordHash = ReadPasswordHash(turn.Db(), found->id);
        }
        return found;
    }();
    if (user && user->info.flags.locked) {
        throw DirectoryError(kStatusAccountLocked, "The user's account is locked");
    }
    if (!user || credentials.password.size() > kMaximumPassword) {
        PretendToCheck(credentials.password.substr(0, kMaximumPassword));
        FailLogon();
    }
    if (!SecretMatches(credentials.password, passwordHash.View())) {
        FailLogon();
    }
    CheckFlags(user->info.flags);
    return *user;
}

bool MayWriteComputers(const Database& db, const UserRow& user, RowId domainId, std::optional<RowId> unitId) {
    if (user.domainId != domainId) {
        return false;
    }
    if (user.info.flags.mayJoin) {
        return true;
    }
    return db
        .Prepare(
            "WITH RECURSIVE above (id) AS (SELECT ?1 UNION SELECT parent_id FROM units JOIN above USING (id)) "
            "SELECT 1 FROM delegations WHERE user_id = ?2 AND unit_id IN (SELECT id FROM above)")
        .Bind(unitId)
        .Bind(user.id)
        .Step();
}

void RequireRight(const Database& db, const UserRow& user, RowId domainId, std::optional<RowId> unitId) {
    if (!MayWriteComputers(db, user, domainId, unitId)) {
        throw DirectoryError(kStatusAccessDenied, "The user may not write computer accounts there");
    }
}

std::vector<UserInfo> ReadUsers(const Database& db, std::optional<RowId> domainId) {
    std::vector<UserInfo> users;
    auto rows = db.Prepare(std::string(kColumns) + "WHERE ?1 IS NULL OR domain_id = ?1 ORDER BY domain_id, users.name");
    rows.Bind(domainId);
    while (rows.Step()) {
        UserRow user = ReadRow(rows);
        user.info.delegatedUnits = ReadDelegation(db, user.id);
        users.push_back(std::move(user.info));
    }
    return users;
}

void Directory::AddUser(const std::string& domain, const std::string& name, std::string_view password,
                        const UserFlags& flags, const std::vector<std::string>& delegatedUnits) {
    const std::string userName = UserName(name);
    const std::string hash = HashPassword(password);

    {
        Turn turn = _impl->Write();
        InsertUser(turn.Db(), RequireDomain(turn.Db(), domain), userName, hash, flags, delegatedUnits);
        turn.Commit();
    }
    _impl->Publish();
}

void Directory::SetUserPassword(const std::string& domain, const std::string& name, std::string_view password) {
    const std::string hash = HashPassword(password);
    Turn turn = _impl->Write();
    const UserRow user = RequireUser(turn.Db(), domain, name);
    turn.Db().Prepare("UPDATE users SET password_hash = ? WHERE id = ?").Bind(hash).Bind(user.id).Run();
    turn.Commit();
}

void Directory::SetUserFlags(const std::string& domain, const std::string& name, const UserFlags& flags) {
    Turn turn = _impl->Write();
    const UserRow user = RequireUser(turn.Db(), domain, name);
    auto update = turn.Db().Prepare(
        "UPDATE users SET disabled = ?, locked = ?, expired = ?, password_expired = ?, must_change_password = ?, "
        "may_join = ? WHERE id = ?");
    BindFlags(update, flags);
    update.Bind(user.id).Run();
    turn.Commit();
}

void Directory::SetUserDelegation(const std::string& domain, const std::string& name,
                                  const std::vector<std::string>& units) {
    Turn turn = _impl->Write();
    const UserRow user = RequireUser(turn.Db(), domain, name);
    WriteDelegation(turn.Db(), RequireDomain(turn.Db(), domain), user.id, units);
    turn.Commit();
}

void Directory::RemoveUser(const std::string& domain, const std::string& name) {
    {
        Turn turn = _impl->Write();
        const UserRow user = RequireUser(turn.Db(), domain, name);
        turn.Db().Prepare("DELETE FROM users WHERE id = ?").Bind(user.id).Run();
        turn.Commit();
    }
    _impl->Publish();
}

std::optional<UserInfo> Directory::FindUser(const std::string& domain, const std::string& name) const {
    const Turn turn = _impl->Read();
    auto user = FindUserRow(turn.Db(), RequireDomain(turn.Db(), domain).id, name);
    if (!user) {
        return std::nullopt;
    }
    user->info.delegatedUnits = ReadDelegation(turn.Db(), user->id);
    return std::move(user->info);
}

std::optional<UserInfo> Directory::FindUserByNumber(const std::string& domain, std::int64_t number) const {
    const Turn turn = _impl->Read();
    auto rows = turn.Db().Prepare(std::string(kColumns) + "WHERE domain_id = ? AND users.id = ?");
    rows.Bind(RequireDomain(turn.Db(), domain).id).Bind(number);
    if (!rows.Step()) {
        return std::nullopt;
    }
    UserRow user = ReadRow(rows);
    user.info.delegatedUnits = ReadDelegation(turn.Db(), user.id);
    return std::move(user.info);
}

std::vector<UserInfo> Directory::ListUsers(const std::string& domain) const {
    const Turn turn = _impl->Read();
    return ReadUsers(turn.Db(), DomainFilter(turn.Db(), domain));
}

UserInfo Directory::Authenticate(const std::string& domain, const UserCredentials& credentials) const {
    UserRow user = AuthenticateRow(*_impl, domain, credentials);
    const Turn turn = _impl->Read();
    user.info.delegatedUnits = ReadDelegation(turn.Db(), user.id);
    return std::move(user.info);
}

}  // namespace nimbrel::embedded
