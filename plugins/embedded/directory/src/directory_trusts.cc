#include <utility>

#include "directory_impl.h"

namespace nimbrel::embedded {
namespace {

std::int32_t RelationshipFor(TrustDirection direction) {
    switch (direction) {
        case TrustDirection::Inbound:
            return kRelationshipInbound;
        case TrustDirection::Outbound:
            return kRelationshipOutbound;
        case TrustDirection::Bidirectional:
            return kRelationshipBidirectional;
    }
    throw DirectoryError(kStatusInvalidParameter, "The trust's direction is none of 1, 2 and 3");
}

// 0, 2, 6 and 7 have a meaning of the library's own, whoever answers them.
bool IsReserved(std::int32_t relationship) {
    return relationship == 0 || relationship == 2 || relationship == kRelationshipUnknownDomain ||
           relationship == kRelationshipNotMember;
}

std::int32_t CheckedRelationship(const TrustInfo& trust) {
    const std::int32_t natural = RelationshipFor(trust.direction);
    const std::int32_t relationship = trust.relationship.value_or(natural);
    if (IsReserved(relationship)) {
        throw DirectoryError(kStatusInvalidParameter, "The relationship values 0, 2, 6 and 7 are reserved");
    }
    return relationship;
}

std::optional<RowId> FindTrust(const Database& db, RowId domainId, const std::string& partner) {
    auto rows = db.Prepare(
        "SELECT id FROM trusts WHERE domain_id = ?1 AND (partner_dns_name = ?2 OR partner_netbios_name = ?2)");
    rows.Bind(domainId).Bind(partner);
    return rows.Step() ? std::optional(rows.Number(0)) : std::nullopt;
}

}  // namespace

std::vector<TrustInfo> ReadTrusts(const Database& db, std::optional<RowId> domainId) {
    std::vector<TrustInfo> trusts;
    auto rows = db.Prepare(
        "SELECT dns_name, partner_dns_name, partner_netbios_name, direction, relationship "
        "FROM trusts JOIN domains ON domains.id = domain_id WHERE ?1 IS NULL OR domain_id = ?1 ORDER BY trusts.id");
    rows.Bind(domainId);
    while (rows.Step()) {
        trusts.push_back({rows.Text(0), rows.Text(1), rows.Text(2), static_cast<TrustDirection>(rows.Number(3)),
                          static_cast<std::int32_t>(rows.Number(4))});
    }
    return trusts;
}

void Directory::AddTrust(const TrustInfo& trust) {
    const std::string dnsName = DnsName(trust.partnerDnsName);
    const std::string netbiosName =
        NetbiosName(trust.partnerNetbiosName.empty() ? DefaultNetbiosName(dnsName) : trust.partnerNetbiosName);
    const std::int32_t relationship = CheckedRelationship(trust);

    Turn turn = _impl->Write();
    const DomainRow domain = RequireDomain(turn.Db(), trust.domain);
    if (SameName(dnsName, domain.info.dnsName) || SameName(netbiosName, domain.info.netbiosName)) {
        throw DirectoryError(kStatusInvalidDomainName, "A domain cannot have a trust to itself");
    }
    if (FindTrust(turn.Db(), domain.id, dnsName) || FindTrust(turn.Db(), domain.id, netbiosName)) {
        throw DirectoryError(kStatusAlreadyExists, "There is a trust to '" + dnsName + "' already");
    }
    turn.Db()
        .Prepare(
            "INSERT INTO trusts (domain_id, partner_dns_name, partner_netbios_name, direction, relationship) "
            "VALUES (?, ?, ?, ?, ?)")
        .Bind(domain.id)
        .Bind(dnsName)
        .Bind(netbiosName)
        .Bind(static_cast<std::int64_t>(trust.direction))
        .Bind(std::int64_t{relationship})
        .Run();
    turn.Commit();
}

void Directory::RemoveTrust(const std::string& domain, const std::string& partner) {
    Turn turn = _impl->Write();
    const auto trust = FindTrust(turn.Db(), RequireDomain(turn.Db(), domain).id, partner);
    if (!trust) {
        throw DirectoryError(kStatusNotFound, "There is no trust to '" + partner + "'");
    }
    turn.Db().Prepare("DELETE FROM trusts WHERE id = ?").Bind(*trust).Run();
    turn.Commit();
}

std::vector<TrustInfo> Directory::ListTrusts(const std::string& domain) const {
    const Turn turn = _impl->Read();
    return ReadTrusts(turn.Db(), DomainFilter(turn.Db(), domain));
}

}  // namespace nimbrel::embedded
