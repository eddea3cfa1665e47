#include <utility>

#include "directory_impl.h"

namespace nimbrel::embedded {
namespace {

constexpr std::int32_t kMaximumPriority = 65535;

RowId RequireController(const Database& db, const std::string& domain, const std::string& name) {
    auto rows = db.Prepare("SELECT id FROM controllers WHERE domain_id = ? AND name = ?");
    rows.Bind(RequireDomain(db, domain).id).Bind(name);
    if (!rows.Step()) {
        throw DirectoryError(kStatusNotFound, "There is no domain controller '" + name + "'");
    }
    return rows.Number(0);
}

}  // namespace

void InsertController(const Database& db, RowId domainId, const ControllerInfo& controller) {
    db.Prepare("INSERT INTO controllers (domain_id, name, priority, reachable) VALUES (?, ?, ?, ?)")
        .Bind(domainId)
        .Bind(controller.name)
        .Bind(std::int64_t{controller.priority})
        .Bind(std::int64_t{controller.reachable})
        .Run();
}

std::vector<ControllerInfo> ReadControllers(const Database& db, std::optional<RowId> domainId) {
    std::vector<ControllerInfo> controllers;
    auto rows = db.Prepare(
        "SELECT dns_name, name, priority, reachable FROM controllers JOIN domains ON domains.id = domain_id "
        "WHERE ?1 IS NULL OR domain_id = ?1 ORDER BY domain_id, priority, name");
    rows.Bind(domainId);
    while (rows.Step()) {
        controllers.push_back({rows.Text(0), rows.Text(1), static_cast<std::int32_t>(rows.Number(2)), rows.Flag(3)});
    }
    return controllers;
}

void Directory::AddController(const ControllerInfo& controller) {
    ControllerInfo normal = controller;
    normal.name = ControllerName(controller.name);
    if (controller.priority < 0 || controller.priority > kMaximumPriority) {
        throw DirectoryError(kStatusInvalidParameter, "A domain controller's priority is 0 to 65535");
    }
    Turn turn = _impl->Write();
    const DomainRow domain = RequireDomain(turn.Db(), controller.domain);
    if (turn.Db()
            .Prepare("SELECT 1 FROM controllers WHERE domain_id = ? AND name = ?")
            .Bind(domain.id)
            .Bind(normal.name)
            .Step()) {
        throw DirectoryError(kStatusAlreadyExists, "There is a domain controller '" + normal.name + "' already");
    }
    InsertController(turn.Db(), domain.id, normal);
    turn.Commit();
}

void Directory::SetControllerReachable(const std::string& domain, const std::string& name, bool reachable) {
    Turn turn = _impl->Write();
    const RowId id = RequireController(turn.Db(), domain, name);
    turn.Db().Prepare("UPDATE controllers SET reachable = ? WHERE id = ?").Bind(std::int64_t{reachable}).Bind(id).Run();
    turn.Commit();
}

void Directory::RemoveController(const std::string& domain, const std::string& name) {
    Turn turn = _impl->Write();
    const RowId id = RequireController(turn.Db(), domain, name);
    turn.Db().Prepare("DELETE FROM controllers WHERE id = ?").Bind(id).Run();
    turn.Commit();
}

std::vector<ControllerInfo> Directory::ListControllers(const std::string& domain) const {
    const Turn turn = _impl->Read();
    return ReadControllers(turn.Db(), DomainFilter(turn.Db(), domain));
}

}  // namespace nimbrel::embedded
