// The names of a directory: which are well formed, and the one spelling under which each is compared.
//
// Each function takes a name as an administrator or an agent typed it and throws `DirectoryError` with the status named
// at it when the name is malformed: not UTF-8, too long, empty, or with characters that such a name cannot have.

#ifndef NIMBREL_EMBEDDED_NAMES_H_
#define NIMBREL_EMBEDDED_NAMES_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "pluginkit/directory_names.h"

namespace nimbrel::embedded {

using kit::HostPrincipalName;
using kit::IsUtf8;
using kit::LowerCase;
using kit::SameName;
using kit::UpperCase;

// UTF-8 without control characters, of 1 to `maximumBytes` bytes.
bool IsPlainText(std::string_view text, std::size_t maximumBytes);

// "Corp.Test." -> "corp.test". 1212.
std::string DnsName(std::string_view name);
// "corp" -> "CORP"; at most 15 letters, digits, hyphens and underscores. 1212.
std::string NetbiosName(std::string_view name);
// "corp.test" -> "CORP": the NetBIOS name of a domain that was given none.
std::string DefaultNetbiosName(const std::string& dnsName);
// "node01.corp.test" and "NODE01$" -> "NODE01"; at most 15 letters, digits and hyphens, not digits alone. 1210.
std::string ComputerName(std::string_view name);
// "DC1.corp.test" -> "dc1.corp.test". 1210.
std::string ControllerName(std::string_view name);
// Keeps the spelling. 1315.
std::string UserName(std::string_view name);

// "alice", "alice@corp.test" or "CORP\alice" in its two parts.
struct QualifiedName {
    std::string name;
    std::string domain;  // empty if the name carries none
};
// 1315.
QualifiedName SplitUserName(std::string_view text);

// An organizational unit as the names from the outermost to the innermost; empty for the default container.
using UnitNames = std::vector<std::string>;
inline constexpr std::size_t kMaximumUnitDepth = 32;
// Path form, distinguished name, the distinguished name of the default container ("CN=Computers,DC=corp,DC=test") or an
// empty text. 267 for a malformed one, 2 for a distinguished name of another domain.
UnitNames ParseUnit(std::string_view unit, const std::string& domainDnsName);
std::string UnitPath(const UnitNames& names);
std::string UnitDistinguishedName(const UnitNames& names, const std::string& domainDnsName);
std::string ComputerDistinguishedName(const std::string& computer, const UnitNames& names,
                                      const std::string& domainDnsName);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_NAMES_H_
