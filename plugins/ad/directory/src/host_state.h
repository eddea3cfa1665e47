// What this host remembers of its membership, in one file of mode 0600 (/var/lib/nimbrel/ad/membership):
//
//     1  format = "1"
//     2  domain = "corp.test"
//     3  netbios_name = "CORP"
//     4  sid = "S-1-5-21-1004336348-1177238915-682003330"
//     5  computer = "NODE01"
//     6  distinguished_name = "CN=NODE01,OU=Hosts,DC=corp,DC=test"
//     7  account_sid = "S-1-5-21-1004336348-1177238915-682003330-1105"
//     8  preferred_controller = "dc1.corp.test"
//
// Lines 2 to 7 are there on a joined host only, line 7 not after a join by an earlier version, which takes a file with
// it for damaged; line 8 may be repeated or missing. No secret: that is in the keytab. A missing file reads as "not
// joined".
//
// Threads and processes: reading needs no lock, as the file is replaced as a whole; changes are made under `FileLock`.
// Errors: `AdError` with 1359 for a damaged file, 5 for one that may not be used.

#ifndef NIMBREL_AD_HOST_STATE_H_
#define NIMBREL_AD_HOST_STATE_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::ad {

struct Membership {
    std::string domain;             // DNS name, lower case
    std::string netbiosName;        // upper case
    std::string sid;                // the domain's
    std::string computer;           // "NODE01"
    std::string distinguishedName;  // as it was when the domain last told it
    std::string accountSid = {};    // the account's, by which a leave knows it; empty where that is not known
};

struct HostState {
    std::optional<Membership> membership;
    std::vector<std::string> preferredControllers;

    static HostState Load(const std::string& path);
    static HostState Parse(std::string_view text);
    std::string Format() const;
    void Save(const std::string& path) const;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_HOST_STATE_H_
