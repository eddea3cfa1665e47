#include <array>
#include <utility>

#include "directory_impl.h"
#include "secret_hash.h"

namespace nimbrel::embedded {
namespace {

DomainRow ReadRow(const Statement& row) { return {row.Number(0), {row.Text(1), row.Text(2), row.Text(3)}}; }

std::string RandomSid() {
    std::array<std::uint32_t, 3> parts = {};
    kit::FillRandom(parts.data(), sizeof(parts));
    std::string sid = "S-1-5-21";
    for (const auto part : parts) {
        sid += '-';
        sid += std::to_string(part);
    }
    return sid;
}

void RequireNameFree(const Database& db, const std::string& name) {
    if (FindDomainRow(db, name)) {
        throw DirectoryError(kStatusDomainExists, "The domain name '" + name + "' is already taken");
    }
}

}  // namespace

std::optional<DomainRow> FindDomainRow(const Database& db, const std::string& domain) {
    auto rows =
        db.Prepare("SELECT id, dns_name, netbios_name, sid FROM domains WHERE dns_name = ?1 OR netbios_name = ?1");
    rows.Bind(DnsName(domain));
    return rows.Step() ? std::optional(ReadRow(rows)) : std::nullopt;
}

DomainRow RequireDomain(const Database& db, const std::string& domain) {
    auto row = FindDomainRow(db, domain);
    if (!row) {
        throw DirectoryError(kStatusNoSuchDomain, "There is no domain '" + domain + "' in the embedded directory");
    }
    return std::move(*row);
}

bool HasReachableController(const Database& db, RowId domainId) {
    return db.Prepare("SELECT 1 FROM controllers WHERE domain_id = ? AND reachable").Bind(domainId).Step();
}

DomainRow RequireReachableDomain(const Database& db, const std::string& domain) {
    DomainRow row = RequireDomain(db, domain);
    if (!HasReachableController(db, row.id)) {
        throw DirectoryError(kStatusNoSuchDomain, "No controller of the domain '" + domain + "' is reachable");
    }
    return row;
}

std::optional<RowId> DomainFilter(const Database& db, const std::string& domain) {
    return domain.empty() ? std::nullopt : std::optional(RequireDomain(db, domain).id);
}

std::vector<DomainInfo> ReadDomains(const Database& db) {
    std::vector<DomainInfo> domains;
    auto rows = db.Prepare("SELECT id, dns_name, netbios_name, sid FROM domains ORDER BY id");
    while (rows.Step()) {
        domains.push_back(ReadRow(rows).info);
    }
    return domains;
}

DomainInfo Directory::AddDomain(const std::string& dnsName, const std::string& netbiosName) {
    DomainInfo domain;
    domain.dnsName = DnsName(dnsName);
    domain.netbiosName = NetbiosName(netbiosName.empty() ? DefaultNetbiosName(domain.dnsName) : netbiosName);
    domain.sid = RandomSid();

    Turn turn = _impl->Write();
    RequireNameFree(turn.Db(), domain.dnsName);
    RequireNameFree(turn.Db(), domain.netbiosName);
    turn.Db()
        .Prepare("INSERT INTO domains (dns_name, netbios_name, sid) VALUES (?, ?, ?)")
        .Bind(domain.dnsName)
        .Bind(domain.netbiosName)
        .Bind(domain.sid)
        .Run();
    InsertController(turn.Db(), turn.Db().LastId(), {domain.dnsName, "dc1." + domain.dnsName, 0, true});
    turn.Commit();
    return domain;
}

void Directory::RemoveDomain(const std::string& domain) {
    {
        Turn turn = _impl->Write();
        const DomainRow row = RequireDomain(turn.Db(), domain);
        turn.Db().Prepare("DELETE FROM trusts WHERE partner_dns_name = ?").Bind(row.info.dnsName).Run();
        turn.Db().Prepare("DELETE FROM domains WHERE id = ?").Bind(row.id).Run();
        turn.Commit();
    }
    _impl->Publish();
}

std::vector<DomainInfo> Directory::ListDomains() const { return ReadDomains(_impl->Read().Db()); }

std::optional<DomainInfo> Directory::FindDomain(const std::string& domain) const {
    const Turn turn = _impl->Read();
    auto row = FindDomainRow(turn.Db(), domain);
    return row ? std::optional(std::move(row->info)) : std::nullopt;
}

}  // namespace nimbrel::embedded
