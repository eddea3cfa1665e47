// What the embedded directory holds, as plain values: results of its listings and arguments of its changes.
//
// Texts are UTF-8. Domain, account and unit names keep the spelling they were added with and are compared without
// regard to the case of ASCII letters.

#ifndef NIMBREL_EMBEDDED_DIRECTORY_TYPES_H_
#define NIMBREL_EMBEDDED_DIRECTORY_TYPES_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pluginkit/trust_values.h"

namespace nimbrel::embedded {

enum class OpenMode {
    MustExist,
    CreateIfMissing,
    // Waits a fraction of a second at most, and needs no room on the disk. Calls that change something throw 5.
    LookUp,
    // The same for a program whose user can stop it at any moment, as he can stop the su that he started: takes no lock
    // that another process waits for. Not in a process that also changes the file, whose changes would fail meanwhile.
    StoppableLookUp,
};

struct DomainInfo {
    std::string dnsName;      // "corp.test", lower case
    std::string netbiosName;  // "CORP", upper case
    std::string sid;          // "S-1-5-21-1004336348-1177238915-682003330", drawn when the domain is added
};

// What stands in the way of a user's log-on, and what the user may do. Each flag lasts until it is changed.
struct UserFlags {
    bool disabled = false;            // 1331
    bool locked = false;              // 1909, whatever the password
    bool expired = false;             // the account has expired: 1793
    bool passwordExpired = false;     // 1330
    bool mustChangePassword = false;  // 1907
    bool mayJoin = false;             // administrator: may create, reset and delete every computer account
};

struct UserInfo {
    std::string domain;  // DNS name
    std::string name;    // "alice"
    UserFlags flags;
    std::vector<std::string> delegatedUnits;  // path form; units, with all below, whose computer accounts it may write
    std::int64_t number = 0;                  // never changes, and is never given to another user of the file; from 1
};

struct OrganizationalUnitInfo {
    std::string domain;             // DNS name
    std::string path;               // "Hosts/Sub"; a slash inside a name is written "\/"
    std::string distinguishedName;  // "OU=Sub,OU=Hosts,DC=corp,DC=test"
};

struct ComputerInfo {
    std::string domain;             // DNS name
    std::string name;               // "NODE01", without the "$"
    std::string path;               // its unit in path form; empty for the default container
    std::string distinguishedName;  // "CN=NODE01,OU=Hosts,DC=corp,DC=test", or "CN=NODE01,CN=Computers,..."
    std::string hostPrincipal;      // "host/node01.corp.test@CORP.TEST"
    bool enabled = true;
    bool preStaged = false;        // waits for a join with its one-time secret
    std::uint32_t keyVersion = 1;  // grows with every change of the secret
};

// A pre-staged account and the secret that a host joins with, once. The only moment at which the secret can be read.
struct PreStagedComputer {
    ComputerInfo computer;
    std::string oneTimeSecret;  // 64 hexadecimal digits; the caller wipes it
};

enum class TrustDirection : std::int32_t {
    Inbound = 1,        // the partner trusts this domain: its users cannot log in here
    Outbound = 2,       // this domain trusts the partner: its users can log in here
    Bidirectional = 3,  // both
};

using namespace kit::trust;

struct TrustInfo {
    std::string domain;              // DNS name of the domain that holds the trust
    std::string partnerDnsName;      // "trust.test"
    std::string partnerNetbiosName;  // "TRUST"
    TrustDirection direction = TrustDirection::Bidirectional;
    // What the relationship query answers for the partner; unset on adding takes the value for the direction.
    std::optional<std::int32_t> relationship;
};

struct ControllerInfo {
    std::string domain;         // DNS name
    std::string name;           // "dc1.corp.test"
    std::int32_t priority = 0;  // the lowest is asked first, as in an SRV record; 0 to 65535
    bool reachable = true;
};

// What the next calls of one operation of the provider shall do instead of their work, or before it.
struct RehearsalInfo {
    std::string operation;                // one of kOperations
    std::uint32_t delayMilliseconds = 0;  // wait before the answer; at most kMaximumDelayMilliseconds
    std::optional<std::uint32_t> status;  // answer with this failure and do nothing; not for the two value operations
    std::optional<std::int32_t> value;    // answer with this value; only for the two value operations
    std::optional<std::uint32_t> remaining;  // calls left; unset means every call, 0 that it is used up
};

// One day.
inline constexpr std::uint32_t kMaximumDelayMilliseconds = 86'400'000;

// The operations that can be rehearsed, in slot order.
inline constexpr std::array<std::string_view, 15> kOperations = {
    "join-domain",
    "part-domain",
    "get-active-domain",
    "set-preferred-domain-controllers",
    "get-preferred-domain-controllers",
    "get-domain-trust-state",
    "get-trusted-domains",
    "get-machine-account-dn",
    "get-any-domain-controller",
    "convert-canonical-username",
    "join-domain-with-machine-account",
    "get-host-principal-for-domain",
    "get-domain-trust-relationship",
    "set-smart-card-enabled-services",
    "get-smart-card-enabled-services",
};

// True for "get-domain-trust-state" and "get-domain-trust-relationship", which answer with a value, not a status.
bool AnswersWithValue(std::string_view operation);

// Everything that a directory file holds, except password and secret hashes. Domains, trusts and units come in the
// order in which they were added, users and computers by name, controllers by priority and then name, rehearsals in
// slot order.
struct DirectorySnapshot {
    std::vector<DomainInfo> domains;
    std::vector<UserInfo> users;
    std::vector<OrganizationalUnitInfo> organizationalUnits;
    std::vector<ComputerInfo> computers;
    std::vector<TrustInfo> trusts;
    std::vector<ControllerInfo> controllers;
    std::vector<RehearsalInfo> rehearsals;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DIRECTORY_TYPES_H_
