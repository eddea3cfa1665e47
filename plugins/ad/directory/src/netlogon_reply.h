// A controller's answer to the NetLogon ping, by which it tells without credentials who it is and what it serves.
//
// The answer is that of NtVer 6 (NETLOGON_SAM_LOGON_RESPONSE_EX): an operation code, flags, the domain's GUID, and eight
// names in DNS message form, which may be compressed against the start of the answer:
//
//     1  17 00            operation: answer to a log-on request, extended; 18 00 from one that is paused
//     2  00 00
//     3  fd 33 00 00      flags: primary, global catalogue, LDAP, directory, key distribution centre, ...
//     4  16 bytes         the domain's GUID
//     5  forest, domain, host (DNS); domain, host (NetBIOS); user; the controller's site, this host's site

#ifndef NIMBREL_AD_NETLOGON_REPLY_H_
#define NIMBREL_AD_NETLOGON_REPLY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nimbrel::ad {

struct NetlogonReply {
    std::uint32_t flags = 0;
    std::string forest;         // "corp.test"
    std::string domain;         // "corp.test", lower case
    std::string controller;     // "dc1.corp.test", lower case
    std::string netbiosDomain;  // "CORP"
    std::string serverSite;     // "Default-First-Site-Name"
    std::string clientSite;     // empty if the controller knows no site for this host
    bool isPaused = false;      // its log-on service is, as while it starts

    bool IsClosest() const { return (flags & 0x80U) != 0; }
    bool ServesLdapAndKerberos() const { return (flags & 0x28U) == 0x28U; }
    // False for a read-only controller.
    bool IsWritable() const { return (flags & 0x100U) != 0; }
};

// Unset for an answer that is malformed, cut short, of another kind, or names nobody; domain and controller are DNS names.
std::optional<NetlogonReply> ParseNetlogonReply(std::string_view bytes);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_NETLOGON_REPLY_H_
