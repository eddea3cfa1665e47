#include "trusts.h"

#include <algorithm>

#include "addirectory/host.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

constexpr std::int32_t kDirectionMask = 0x0f;
constexpr std::int64_t kInbound = 1;
constexpr std::int64_t kOutbound = 2;
constexpr std::int64_t kActiveDirectoryType = 2;
constexpr std::int64_t kRealmType = 3;
constexpr std::int64_t kForestTransitive = 0x08;
constexpr std::int64_t kWithinForest = 0x20;

std::int32_t DirectionOf(std::int64_t direction) {
    switch (direction & (kInbound | kOutbound)) {
        case kInbound:
            return kRelationshipInbound;
        case kOutbound:
            return kRelationshipOutbound;
        case kInbound | kOutbound:
            return kRelationshipBidirectional;
        default:
            return 0;
    }
}

std::int32_t KindOf(std::int64_t type, std::int64_t attributes) {
    if (type == kRealmType) {
        return kRelationshipKindRealm;
    }
    if ((attributes & kWithinForest) != 0) {
        return kRelationshipKindWithinForest;
    }
    return (attributes & kForestTransitive) != 0 ? kRelationshipKindForest : kRelationshipKindExternal;
}

bool Knows(const std::vector<Trust>& trusts, const std::string& domain) {
    return std::any_of(trusts.begin(), trusts.end(), [&](const Trust& trust) { return trust.IsNamed(domain); });
}

}  // namespace

bool Trust::LetsUsersIn() const { return (relationship & kDirectionMask) != kRelationshipInbound; }

bool Trust::LetsUsersOut() const { return (relationship & kDirectionMask) != kRelationshipOutbound; }

bool Trust::IsNamed(const std::string& name) const {
    return SameName(dnsName, name) || (!netbiosName.empty() && SameName(netbiosName, name));
}

std::int32_t RelationshipOf(std::int64_t direction, std::int64_t type, std::int64_t attributes) {
    const std::int32_t found = DirectionOf(direction);
    return found == 0 ? 0 : found + KindOf(type, attributes);
}

std::vector<Trust> ReadTrusts(LdapConnection& connection, const Controller& controller) {
    const int objects =
        connection.Start({"CN=System," + controller.domainDN,
                          LdapScope::OneLevel,
                          "(objectClass=trustedDomain)",
                          {"trustPartner", "flatName", "trustDirection", "trustType", "trustAttributes"}});
    // systemFlags 3: a domain, as opposed to an application partition.
    const int domains =
        connection.Start({"CN=Partitions," + controller.configurationDN,
                          LdapScope::OneLevel,
                          "(&(objectClass=crossRef)(nETBIOSName=*)(systemFlags:1.2.840.113556.1.4.803:=3))",
                          {"dnsRoot", "nETBIOSName"}});
    std::vector<Trust> trusts;
    for (const auto& object : connection.Finish(objects)) {
        const std::int32_t relationship = RelationshipOf(object.Number("trustdirection"), object.Number("trusttype"),
                                                         object.Number("trustattributes"));
        if (relationship != 0 && !object.Text("trustpartner").empty()) {
            trusts.push_back({LowerCase(object.Text("trustpartner")), object.Text("flatname"), relationship,
                              object.Number("trusttype") == kActiveDirectoryType});
        }
    }
    for (const auto& domain : connection.Finish(domains)) {
        const std::string name = LowerCase(domain.Text("dnsroot"));
        if (!name.empty() && !SameName(name, controller.facts.domain) && !Knows(trusts, name)) {
            trusts.push_back(
                {name, domain.Text("netbiosname"), kRelationshipBidirectional + kRelationshipKindWithinForest});
        }
    }
    return trusts;
}

}  // namespace nimbrel::ad
