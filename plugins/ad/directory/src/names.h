// The names of hosts, domains, users and organizational units: which are well formed, and the one spelling under which
// each is compared.
//
// Each function takes a name as an administrator or an agent typed it and throws `AdError` with the status named at it
// when the name is malformed.

#ifndef NIMBREL_AD_NAMES_H_
#define NIMBREL_AD_NAMES_H_

#include <string>
#include <string_view>
#include <vector>

#include "pluginkit/directory_names.h"

namespace nimbrel::ad {

using kit::HasControlCharacters;
using kit::HostPrincipalName;
using kit::IsUtf8;
using kit::LowerCase;
using kit::SameName;
using kit::UpperCase;

// "Corp.Test." -> "corp.test". 1212.
std::string DnsName(std::string_view name);
// "node01.corp.test" and "NODE01$" -> "NODE01"; at most 15 letters, digits and hyphens, not digits alone. 1210.
std::string ComputerName(std::string_view name);
// "DC1.corp.test." -> "dc1.corp.test"; an address stays what it is. 1210.
std::string ControllerName(std::string_view name);
// "NODE01", "corp.test" -> "node01.corp.test".
std::string HostName(const std::string& computer, const std::string& domain);

// "alice", "alice@corp.test" or "CORP\alice" in its two parts; `domain` is empty if the name carries none. 1315.
struct UserName {
    std::string name;
    std::string domain;
};
UserName SplitUserName(std::string_view text);

// "corp.test" -> "DC=corp,DC=test".
std::string DomainDN(const std::string& domain);
// "Hosts/Sub" -> "OU=Sub,OU=Hosts,DC=corp,DC=test". A slash inside a name is written "\/". A text that is a
// distinguished name stays what it is; one without the domain's part gets it. 267 for a malformed one, 2 for one of
// another domain.
std::string UnitDN(std::string_view unit, const std::string& domain);

// "a*b" -> "a\2ab": safe inside a search filter.
std::string EscapeFilter(std::string_view value);

// A security identifier's binary form -> "S-1-5-21-..."; empty if it is none.
std::string SidText(std::string_view binary);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_NAMES_H_
