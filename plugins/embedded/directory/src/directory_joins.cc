// Computer accounts, as a host uses them: joining, leaving, and the host's own log-on.

#include <utility>

#include "directory_impl.h"
#include "secret_hash.h"

namespace nimbrel::embedded {
namespace {

// The account as a join leaves it: a new secret, enabled, no longer waiting for its host.
ComputerRow WithNewSecret(ComputerRow row, const std::string& hash) {
    row.secretHash = hash;
    row.enabled = true;
    row.preStaged = false;
    ++row.keyVersion;
    return row;
}

ComputerRow NewAccount(const DomainRow& domain, const std::string& name, std::optional<RowId> unitId,
                       const std::string& hash) {
    ComputerRow row;
    row.domainId = domain.id;
    row.name = name;
    row.unitId = unitId;
    row.secretHash = hash;
    return row;
}

JoinedComputer Outcome(const Database& db, const DomainRow& domain, const ComputerRow& after,
                       std::optional<ComputerRow> before, kit::Secret secret) {
    auto backup = std::make_shared<ComputerBackup>();
    backup->domain = domain.info;
    backup->before = std::move(before);
    backup->name = after.name;
    backup->leftHash = after.secretHash;
    return {ToInfo(db, after, domain.info), domain.info, std::move(secret), std::move(backup)};
}

[[noreturn]] void FailOneTimeSecret() {
    throw DirectoryError(kStatusLogonFailure,
                         "The machine account is unknown, or its one-time secret is wrong or used");
}

// One that waits for its host takes its one-time secret from a join alone.
bool TakesSecret(const ComputerRow& computer, std::string_view secret) {
    return !computer.preStaged && SecretMatches(secret, computer.secretHash);
}

bool UnitExists(const Database& db, RowId unitId) {
    return db.Prepare("SELECT 1 FROM units WHERE id = ?").Bind(unitId).Step();
}

std::optional<std::string> AccountToJoin(const std::string& accountName) {
    try {
        return ComputerName(accountName);
    } catch (const DirectoryError&) {
        return std::nullopt;  // translated: to a domain a malformed account is an unknown one
    }
}

// A row and its domain as they were before a hash was checked outside the turn.
struct Found {
    DomainRow domain;
    std::optional<ComputerRow> computer;
};

Found FindAccount(DirectoryConnection& connection, const std::string& domain, const std::string& accountName) {
    const Turn turn = connection.Read();
    Found found;
    found.domain = RequireReachableDomain(turn.Db(), domain);
    if (const auto name = AccountToJoin(accountName)) {
        found.computer = FindComputerRow(turn.Db(), found.domain.id, *name);
    }
    return found;
}

}  // namespace

JoinedComputer Directory::JoinComputer(const std::string& domain, const std::string& hostName, const std::string& unit,
                                       const UserCredentials& credentials) {
    const std::string name = ComputerName(hostName);
    const UserRow user = AuthenticateRow(*_impl, domain, credentials);
    kit::Secret secret = kit::Secret::Random();
    const std::string hash = HashSecret(secret.View(), HashCost::RandomSecret);

    Turn turn = _impl->Write();
    const Database& db = turn.Db();
    const DomainRow row = RequireReachableDomain(db, domain);
    const auto unitId = RequireUnit(db, row, unit);
    auto before = FindComputerRow(db, row.id, name);
    RequireRight(db, user, row.id, before ? before->unitId : unitId);
    const ComputerRow after = before ? WithNewSecret(*before, hash) : NewAccount(row, name, unitId, hash);
    before ? UpdateComputer(db, after) : InsertComputer(db, after);
    JoinedComputer joined = Outcome(db, row, after, std::move(before), std::move(secret));
    turn.Commit();
    return joined;
}

JoinedComputer Directory::JoinPreStagedComputer(const std::string& domain, const std::string& accountName,
                                                std::string_view oneTimeSecret) {
    const Found found = FindAccount(*_impl, domain, accountName);
    if (!found.computer || !found.computer->preStaged || !SecretMatches(oneTimeSecret, found.computer->secretHash)) {
        FailOneTimeSecret();
    }
    if (!found.computer->enabled) {
        throw DirectoryError(kStatusAccountDisabled, "The machine account is disabled");
    }
    kit::Secret secret = kit::Secret::Random();
    const ComputerRow after = WithNewSecret(*found.computer, HashSecret(secret.View(), HashCost::RandomSecret));

    Turn turn = _impl->Write();
    auto before = FindComputerRow(turn.Db(), found.domain.id, after.name);
    if (!before || before->secretHash != found.computer->secretHash) {
        FailOneTimeSecret();  // another host has used it meanwhile
    }
    UpdateComputer(turn.Db(), after);
    JoinedComputer joined = Outcome(turn.Db(), found.domain, after, std::move(before), std::move(secret));
    turn.Commit();
    return joined;
}

std::shared_ptr<const ComputerBackup> Directory::DeleteComputer(const std::string& domain,
                                                                const std::string& accountName,
                                                                const UserCredentials& credentials,
                                                                std::string_view secret) {
    const std::string name = ComputerName(accountName);
    const UserRow user = AuthenticateRow(*_impl, domain, credentials);
    const Found found = FindAccount(*_impl, domain, name);
    if (!found.computer || !TakesSecret(*found.computer, secret)) {
        return nullptr;
    }
    Turn turn = _impl->Write();
    const DomainRow row = RequireReachableDomain(turn.Db(), domain);
    auto before = FindComputerRow(turn.Db(), row.id, name);
    if (!before || before->secretHash != found.computer->secretHash) {
        return nullptr;  // another host has joined with it meanwhile, or has deleted it
    }
    RequireRight(turn.Db(), user, row.id, before->unitId);
    DeleteComputerRow(turn.Db(), before->id);
    turn.Commit();
    return std::make_shared<ComputerBackup>(ComputerBackup{row.info, std::move(before), name, ""});
}

void Directory::UndoJoin(const JoinedComputer& joined) {
    const ComputerBackup& backup = *joined.before;
    Turn turn = _impl->Write();
    const auto domain = FindDomainRow(turn.Db(), backup.domain.dnsName);
    const auto now = domain ? FindComputerRow(turn.Db(), domain->id, backup.name) : std::nullopt;
    if (!now || now->secretHash != backup.leftHash) {
        return;
    }
    backup.before ? UpdateComputer(turn.Db(), *backup.before) : DeleteComputerRow(turn.Db(), now->id);
    turn.Commit();
}

void Directory::UndoDelete(const ComputerBackup& deleted) {
    Turn turn = _impl->Write();
    const auto domain = FindDomainRow(turn.Db(), deleted.domain.dnsName);
    if (!domain || domain->id != deleted.before->domainId || FindComputerRow(turn.Db(), domain->id, deleted.name)) {
        return;
    }
    ComputerRow row = *deleted.before;
    if (row.unitId && !UnitExists(turn.Db(), *row.unitId)) {
        row.unitId.reset();
    }
    InsertComputer(turn.Db(), row);
    turn.Commit();
}

std::int32_t Directory::CheckComputer(const std::string& domain, const std::string& accountName,
                                      std::string_view secret) const {
    Found found;
    try {
        found = FindAccount(*_impl, domain, accountName);
    } catch (const DirectoryError& error) {
        if (error.Status() == kStatusNoSuchDomain) {
            return kTrustStateNoController;  // translated: this question has a value for it
        }
        throw;
    }
    if (!found.computer) {
        return kTrustStateAccountMissing;
    }
    if (!found.computer->enabled) {
        return kTrustStateAccountDisabled;
    }
    return TakesSecret(*found.computer, secret) ? kTrustStateHealthy : kTrustStateSecretMismatch;
}

}  // namespace nimbrel::embedded
