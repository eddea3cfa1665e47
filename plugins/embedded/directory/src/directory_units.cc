#include <algorithm>
#include <utility>

#include "directory_impl.h"

namespace nimbrel::embedded {
namespace {

std::optional<RowId> FindChild(const Database& db, RowId domainId, std::optional<RowId> parent,
                               const std::string& name) {
    auto rows =
        db.Prepare("SELECT id FROM units WHERE domain_id = ? AND ifnull(parent_id, 0) = ifnull(?, 0) AND name = ?");
    rows.Bind(domainId).Bind(parent).Bind(name);
    return rows.Step() ? std::optional(rows.Number(0)) : std::nullopt;
}

RowId InsertChild(const Database& db, RowId domainId, std::optional<RowId> parent, const std::string& name) {
    db.Prepare("INSERT INTO units (domain_id, parent_id, name) VALUES (?, ?, ?)")
        .Bind(domainId)
        .Bind(parent)
        .Bind(name)
        .Run();
    return db.LastId();
}

UnitNames ParseNamedUnit(const std::string& unit, const DomainRow& domain) {
    UnitNames names = ParseUnit(unit, domain.info.dnsName);
    if (names.empty()) {
        throw DirectoryError(kStatusInvalidUnitName, "The default container is no organizational unit");
    }
    return names;
}

// Adds what is missing of the unit; false if nothing was.
bool AddMissing(const Database& db, RowId domainId, const UnitNames& names) {
    bool added = false;
    std::optional<RowId> parent;
    for (const auto& name : names) {
        auto child = FindChild(db, domainId, parent, name);
        if (!child) {
            child = InsertChild(db, domainId, parent, name);
            added = true;
        }
        parent = child;
    }
    return added;
}

bool IsInUse(const Database& db, RowId unitId) {
    return db.Prepare("SELECT 1 FROM units WHERE parent_id = ?1 UNION ALL SELECT 1 FROM computers WHERE unit_id = ?1")
        .Bind(unitId)
        .Step();
}

OrganizationalUnitInfo ToUnitInfo(const std::string& domain, const UnitNames& names) {
    return {domain, UnitPath(names), UnitDistinguishedName(names, domain)};
}

}  // namespace

std::optional<RowId> RequireUnit(const Database& db, const DomainRow& domain, std::string_view unit) {
    std::optional<RowId> id;
    for (const auto& name : ParseUnit(unit, domain.info.dnsName)) {
        id = FindChild(db, domain.id, id, name);
        if (!id) {
            throw DirectoryError(kStatusFileNotFound, "There is no organizational unit '" + std::string(unit) +
                                                          "' in the domain '" + domain.info.dnsName + "'");
        }
    }
    return id;
}

UnitNames UnitNamesOf(const Database& db, std::optional<RowId> unitId) {
    UnitNames names;
    while (unitId) {
        auto rows = db.Prepare("SELECT name, parent_id FROM units WHERE id = ?");
        rows.Bind(*unitId);
        if (!rows.Step() || names.size() == kMaximumUnitDepth) {
            throw DirectoryError(kStatusInternalError,
                                 "The organizational units of the embedded directory are damaged");
        }
        names.push_back(rows.Text(0));
        unitId = rows.OptionalNumber(1);
    }
    std::reverse(names.begin(), names.end());
    return names;
}

std::vector<OrganizationalUnitInfo> ReadUnits(const Database& db, std::optional<RowId> domainId) {
    std::vector<OrganizationalUnitInfo> units;
    auto rows = db.Prepare(
        "SELECT units.id, dns_name FROM units JOIN domains ON domains.id = domain_id "
        "WHERE ?1 IS NULL OR domain_id = ?1 ORDER BY units.id");
    rows.Bind(domainId);
    while (rows.Step()) {
        units.push_back(ToUnitInfo(rows.Text(1), UnitNamesOf(db, rows.Number(0))));
    }
    return units;
}

OrganizationalUnitInfo Directory::AddOrganizationalUnit(const std::string& domain, const std::string& unit) {
    Turn turn = _impl->Write();
    const DomainRow row = RequireDomain(turn.Db(), domain);
    if (!AddMissing(turn.Db(), row.id, ParseNamedUnit(unit, row))) {
        throw DirectoryError(kStatusAlreadyExists, "There is an organizational unit '" + unit + "' already");
    }
    const auto names = UnitNamesOf(turn.Db(), RequireUnit(turn.Db(), row, unit));
    turn.Commit();
    return ToUnitInfo(row.info.dnsName, names);
}

void Directory::RemoveOrganizationalUnit(const std::string& domain, const std::string& unit) {
    Turn turn = _impl->Write();
    const DomainRow row = RequireDomain(turn.Db(), domain);
    ParseNamedUnit(unit, row);
    const auto id = RequireUnit(turn.Db(), row, unit);
    if (IsInUse(turn.Db(), *id)) {
        throw DirectoryError(kStatusNotEmpty, "The organizational unit '" + unit + "' is not empty");
    }
    turn.Db().Prepare("DELETE FROM units WHERE id = ?").Bind(*id).Run();
    turn.Commit();
}

std::vector<OrganizationalUnitInfo> Directory::ListOrganizationalUnits(const std::string& domain) const {
    const Turn turn = _impl->Read();
    return ReadUnits(turn.Db(), DomainFilter(turn.Db(), domain));
}

}  // namespace nimbrel::embedded
