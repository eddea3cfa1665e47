// The trusts of a domain, read from the directory.

#ifndef NIMBREL_AD_TRUSTS_H_
#define NIMBREL_AD_TRUSTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "controller_locator.h"
#include "ldap_connection.h"

namespace nimbrel::ad {

struct Trust {
    std::string dnsName;            // "trust.test"
    std::string netbiosName;        // "TRUST"; empty for a Kerberos realm
    std::int32_t relationship = 0;  // direction plus kind, see host.h
    bool isActiveDirectory = true;  // as opposed to a Windows NT domain, which has no DNS name, or a Kerberos realm

    bool LetsUsersIn() const;   // their users can log in here
    bool LetsUsersOut() const;  // our users can log in there
    bool IsNamed(const std::string& name) const;
};

// The relationship that a trustedDomain object's numbers stand for; 0 for a trust that is switched off.
std::int32_t RelationshipOf(std::int64_t direction, std::int64_t type, std::int64_t attributes);

// The trustedDomain objects, then the domains of the own forest that have none. In the directory's order.
std::vector<Trust> ReadTrusts(LdapConnection& connection, const Controller& controller);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_TRUSTS_H_
