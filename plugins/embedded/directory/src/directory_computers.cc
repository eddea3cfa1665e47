// Computer accounts, as their administrator sees them.

#include <utility>

#include "directory_impl.h"
#include "secret_hash.h"

namespace nimbrel::embedded {
namespace {

constexpr char kColumns[] =
    "SELECT computers.id, domain_id, computers.name, unit_id, secret_hash, enabled, pre_staged, key_version "
    "FROM computers ";

ComputerRow ReadRow(const Statement& row) {
    ComputerRow computer;
    computer.id = row.Number(0);
    computer.domainId = row.Number(1);
    computer.name = row.Text(2);
    computer.unitId = row.OptionalNumber(3);
    computer.secretHash = row.Text(4);
    computer.enabled = row.Flag(5);
    computer.preStaged = row.Flag(6);
    computer.keyVersion = static_cast<std::uint32_t>(row.Number(7));
    return computer;
}

std::string AccountName(const std::string& name) {
    return !name.empty() && name.back() == '$' ? name.substr(0, name.size() - 1) : name;
}

struct NewPreStaged {
    ComputerRow row;
    kit::Secret secret = kit::Secret::Random();

    explicit NewPreStaged(const std::string& name) {
        row.name = ComputerName(name);
        row.preStaged = true;
        row.secretHash = HashSecret(secret.View(), HashCost::RandomSecret);
    }
};

}  // namespace

ComputerRow RequireComputer(const Database& db, const DomainRow& domain, const std::string& name) {
    auto row = FindComputerRow(db, domain.id, AccountName(name));
    if (!row) {
        throw DirectoryError(kStatusNoSuchAccount,
                             "There is no computer account '" + name + "' in the domain '" + domain.info.dnsName + "'");
    }
    return std::move(*row);
}

ComputerInfo InsertPreStaged(const Database& db, const DomainRow& domain, ComputerRow computer) {
    if (FindComputerRow(db, domain.id, computer.name)) {
        throw DirectoryError(kStatusAccountExists, "There is a computer account '" + computer.name + "' already");
    }
    computer.domainId = domain.id;
    InsertComputer(db, computer);
    return ToInfo(db, computer, domain.info);
}

std::optional<ComputerRow> FindComputerRow(const Database& db, RowId domainId, const std::string& name) {
    auto rows = db.Prepare(std::string(kColumns) + "WHERE domain_id = ? AND name = ?");
    rows.Bind(domainId).Bind(name);
    return rows.Step() ? std::optional(ReadRow(rows)) : std::nullopt;
}

ComputerInfo ToInfo(const Database& db, const ComputerRow& row, const DomainInfo& domain) {
    const UnitNames units = UnitNamesOf(db, row.unitId);
    ComputerInfo computer;
    computer.domain = domain.dnsName;
    computer.name = row.name;
    computer.path = UnitPath(units);
    computer.distinguishedName = ComputerDistinguishedName(row.name, units, domain.dnsName);
    computer.hostPrincipal = HostPrincipalName(row.name, domain.dnsName);
    computer.enabled = row.enabled;
    computer.preStaged = row.preStaged;
    computer.keyVersion = row.keyVersion;
    return computer;
}

void InsertComputer(const Database& db, const ComputerRow& row) {
    db.Prepare(
          "INSERT INTO computers (domain_id, name, unit_id, secret_hash, enabled, pre_staged, key_version) "
          "VALUES (?, ?, ?, ?, ?, ?, ?)")
        .Bind(row.domainId)
        .Bind(row.name)
        .Bind(row.unitId)
        .Bind(row.secretHash)
        .Bind(std::int64_t{row.enabled})
        .Bind(std::int64_t{row.preStaged})
        .Bind(std::int64_t{row.keyVersion})
        .Run();
}

void UpdateComputer(const Database& db, const ComputerRow& row) {
    db.Prepare(
          "UPDATE computers SET unit_id = ?, secret_hash = ?, enabled = ?, pre_staged = ?, key_version = ? "
          "WHERE id = ?")
        .Bind(row.unitId)
        .Bind(row.secretHash)
        .Bind(std::int64_t{row.enabled})
        .Bind(std::int64_t{row.preStaged})
        .Bind(std::int64_t{row.keyVersion})
        .Bind(row.id)
        .Run();
}

void DeleteComputerRow(const Database& db, RowId id) {
    db.Prepare("DELETE FROM computers WHERE id = ?").Bind(id).Run();
}

std::vector<ComputerInfo> ReadComputers(const Database& db, std::optional<RowId> domainId) {
    std::vector<ComputerInfo> computers;
    auto rows = db.Prepare(
        "SELECT computers.id, domain_id, name, unit_id, secret_hash, enabled, pre_staged, key_version, dns_name "
        "FROM computers JOIN domains ON domains.id = domain_id "
        "WHERE ?1 IS NULL OR domain_id = ?1 ORDER BY domain_id, name");
    rows.Bind(domainId);
    while (rows.Step()) {
        computers.push_back(ToInfo(db, ReadRow(rows), {rows.Text(8), "", ""}));
    }
    return computers;
}

PreStagedComputer Directory::PreStageComputer(const std::string& domain, const std::string& name,
                                              const std::string& unit) {
    NewPreStaged computer(name);
    Turn turn = _impl->Write();
    const DomainRow row = RequireDomain(turn.Db(), domain);
    computer.row.unitId = RequireUnit(turn.Db(), row, unit);
    PreStagedComputer result = {InsertPreStaged(turn.Db(), row, computer.row), std::string(computer.secret.View())};
    turn.Commit();
    return result;
}

PreStagedComputer Directory::PreStageComputer(const std::string& domain, const std::string& name,
                                              const std::string& unit, const UserCredentials& credentials) {
    NewPreStaged computer(name);
    const UserRow user = AuthenticateRow(*_impl, domain, credentials);
    Turn turn = _impl->Write();
    const DomainRow row = RequireReachableDomain(turn.Db(), domain);
    computer.row.unitId = RequireUnit(turn.Db(), row, unit);
    RequireRight(turn.Db(), user, row.id, computer.row.unitId);
    PreStagedComputer result = {InsertPreStaged(turn.Db(), row, computer.row), std::string(computer.secret.View())};
    turn.Commit();
    return result;
}

void Directory::ResetComputer(const std::string& domain, const std::string& name) {
    const std::string hash = HashSecret(kit::Secret::Random().View(), HashCost::RandomSecret);
    Turn turn = _impl->Write();
    ComputerRow computer = RequireComputer(turn.Db(), RequireDomain(turn.Db(), domain), name);
    computer.secretHash = hash;
    computer.preStaged = false;
    ++computer.keyVersion;
    UpdateComputer(turn.Db(), computer);
    turn.Commit();
}

void Directory::SetComputerEnabled(const std::string& domain, const std::string& name, bool enabled) {
    Turn turn = _impl->Write();
    ComputerRow computer = RequireComputer(turn.Db(), RequireDomain(turn.Db(), domain), name);
    computer.enabled = enabled;
    UpdateComputer(turn.Db(), computer);
    turn.Commit();
}

void Directory::RemoveComputer(const std::string& domain, const std::string& name) {
    Turn turn = _impl->Write();
    DeleteComputerRow(turn.Db(), RequireComputer(turn.Db(), RequireDomain(turn.Db(), domain), name).id);
    turn.Commit();
}

ComputerInfo Directory::GetComputer(const std::string& domain, const std::string& name) const {
    const Turn turn = _impl->Read();
    const DomainRow row = RequireDomain(turn.Db(), domain);
    return ToInfo(turn.Db(), RequireComputer(turn.Db(), row, name), row.info);
}

std::vector<ComputerInfo> Directory::ListComputers(const std::string& domain) const {
    const Turn turn = _impl->Read();
    return ReadComputers(turn.Db(), DomainFilter(turn.Db(), domain));
}

}  // namespace nimbrel::embedded
