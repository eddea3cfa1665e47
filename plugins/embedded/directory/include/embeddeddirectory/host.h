// What a provider does for one host, over the two files: joining, leaving and answering questions. The C table of the
// plug-in is a thin coat over this class.
//
// A join and a leave of the host itself also publish who can log in, for programs that may not read the two files.
//
// Files are opened for each call and closed after it, so that a change made by another process counts at once, and
// nothing is left to destroy when the process exits.
//
// Threads: stateless; any calls at once. A fork waits for the calls under way, so that no child inherits an open file, for
// a minute at most; a call waits up to ten seconds for another process with each of its changes.
// Errors: `DirectoryError`; 1355 whenever the domain cannot be asked (directory file missing, domain unknown, no
// controller reachable).

#ifndef NIMBREL_EMBEDDED_HOST_H_
#define NIMBREL_EMBEDDED_HOST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/membership.h"
#include "pluginkit/machine_account_join.h"

namespace nimbrel::embedded {

using kit::MachineAccountJoin;

class Host {
 public:
    // `mode` is `MustExist`, or one of the look-ups for a host that is only asked: see `OpenMode`.
    explicit Host(std::string directoryPath = kDefaultDirectoryPath,
                  std::string membershipPath = kDefaultMembershipPath, OpenMode mode = OpenMode::MustExist);

    // Joins as `hostName` (its part before the first "."). First the account in the domain, then the membership; a
    // failure of the second restores the account. Throws 2691 (already joined) and what `Directory::JoinComputer`
    // throws.
    void Join(const std::string& domain, const std::string& hostName, const std::string& unit,
              const UserCredentials& credentials) const;
    // Throws 2691, 1210, 1810 if the SID or the NetBIOS name is not the domain's, and what
    // `Directory::JoinPreStagedComputer` throws.
    void JoinWithMachineAccount(const MachineAccountJoin& join) const;
    // Leaves. With credentials the account is deleted (5 without the right, and the host stays joined), as in a real
    // domain unless it is not this host's any more, which the system log tells; without, the host only forgets and the
    // account stays. Throws 2692 (not joined).
    void Part(const std::optional<UserCredentials>& credentials) const;

    // Both names empty when not joined.
    DomainInfo ActiveDomain() const;
    // Empty when not joined.
    std::string MachineAccountDN() const;
    std::vector<std::string> PreferredControllers() const;
    void SetPreferredControllers(const std::vector<std::string>& controllers) const;
    std::vector<std::string> SmartCardServices() const;
    void SetSmartCardServices(const std::vector<std::string>& services) const;

    // One of the kTrustState values; never throws for a fault that has a value of its own.
    std::int32_t TrustState() const;
    // One of the kRelationship values, or what the trust carries.
    std::int32_t TrustRelationship(const std::string& domain) const;
    // The partners whose users can log in here, in the order in which the trusts were added. Throws 2 (not joined),
    // 1355, and when the domain refuses the host's own log-on 1326 (secret out of step), 1331 (disabled), 1787
    // (deleted).
    std::vector<DomainInfo> TrustedDomains() const;
    // A reachable controller of `domain` (empty: the joined one): `firstChoice`, else the first preferred one, else the
    // one of lowest priority number, then by name. Throws 1355.
    std::string AnyController(const std::string& firstChoice, const std::string& domain) const;
    // "user@corp.test", spelled as in the directory, for "user", "user@domain" and "DOMAIN\user" of the own domain or a
    // trusted one. Throws 1317 (unknown), 1315 (malformed), 2692 (not joined), 1355, and as `TrustedDomains`.
    std::string CanonicalUserName(const std::string& name) const;
    // "host/node01.corp.test@CORP.TEST" for the own domain and the trusted ones: the host has one key, and a partner's
    // users reach it through the trust. Throws 1355 otherwise.
    std::string HostPrincipal(const std::string& domain) const;

    // The rehearsals of the directory file, see `Directory`; nothing is open between two calls.
    std::optional<Directory::TakenRehearsal> TakeRehearsal(std::string_view operation) const;
    bool StillRehearsed(std::int64_t ticket) const;

 private:
    void Publish() const noexcept;

    std::string _directoryPath;
    std::string _membershipPath;
    OpenMode _mode;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_HOST_H_
