// What the provider does for one host: joining, leaving and answering questions. The C table of the plug-in is a thin
// coat over this class.
//
// Every operation ends within its budget (`Settings`), whatever the controllers and name servers do; a join that has
// to be taken back has `rollBackBudget` besides. What the log-in software takes is in neither: a join, a leave, and a
// change of the preferred controllers or the smart-card services have about 24 seconds more with SSSD, a join that
// has to be taken back twice that.
//
// Threads: stateless; any calls at once. Joins and leaves of one host take turns, other processes included.
// Errors: `AdError`; 1355 whenever no controller answers in time, 1398 when this host's clock is off, 170 when another
// process changes the host for too long.

#ifndef NIMBREL_AD_HOST_H_
#define NIMBREL_AD_HOST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "addirectory/ad_error.h"
#include "addirectory/log_in_software.h"
#include "addirectory/settings.h"
#include "pluginkit/machine_account_join.h"
#include "pluginkit/trust_values.h"

namespace nimbrel::ad {

using namespace kit::trust;
using kit::MachineAccountJoin;

// A user as an administrator types it: "alice", "alice@corp.test" or "CORP\alice". The caller keeps and wipes the texts,
// each of which ends with a NUL.
struct UserCredentials {
    const char* userName;
    const char* password;
};

struct DomainNames {
    std::string dnsName;
    std::string netbiosName;
};

class Host {
 public:
    // `logIns` must outlive the object.
    Host(Settings settings, LogInSoftware& logIns) : _settings(std::move(settings)), _logIns(logIns) {}

    // Joins as `hostName` (its part before the first "."): first the account in the domain, then the keytab, the
    // log-ins, and last this host's membership. A failure of any step takes the earlier ones back. An empty `unit`
    // means the default container. Throws 2691 (already joined, looked at first), 1210, 1212, 1355, 1398, 1326, 1331,
    // 1793, 1909, 1907 (the user's log-in), 2 or 267 (unit), 5, 1316, 1325, 8557.
    void Join(const std::string& domain, const std::string& hostName, const std::string& unit,
              const UserCredentials& credentials) const;
    // Takes over an account that was made for this host, and changes its secret. Throws 1810 if the SID or the NetBIOS
    // name is not the domain's, 1326 for a wrong or used secret or an unknown account, else as above. A secret that was
    // used by a join of this host that was cut short is as good as a new one.
    void JoinWithMachineAccount(const MachineAccountJoin& join) const;
    // Leaves, or takes away what a join has left that was cut short. With credentials the account is deleted, or disabled
    // where the user may not delete it; 5 when neither is allowed, and the host stays joined; an account that is another
    // host's by now stays. Without, the host forgets, and asks nobody. Throws 2692 (not joined).
    void Part(const std::optional<UserCredentials>& credentials) const;

    // Both names empty when not joined.
    DomainNames ActiveDomain() const;
    // Where the account stood when the trust state was last asked for, or at the join. Empty when not joined. Asks
    // nobody.
    std::string MachineAccountDN() const;
    std::vector<std::string> PreferredControllers() const;
    // Emptied by a leave. Throws 1210 for a malformed name, 87 for more than 256.
    void SetPreferredControllers(const std::vector<std::string>& controllers) const;
    std::vector<std::string> SmartCardServices() const;
    void SetSmartCardServices(const std::vector<std::string>& services) const;

    // One of the kTrustState values; never throws for a fault that has a value of its own.
    std::int32_t TrustState() const;
    // One of the kRelationship values.
    std::int32_t TrustRelationship(const std::string& domain) const;
    // The domains whose users can log in here. Throws 2 (not joined), 1355, and when the domain refuses the host's own
    // log-on 1326 (secret out of step), 1331 (disabled), 1787 (deleted).
    std::vector<DomainNames> TrustedDomains() const;
    // A controller of `domain` (empty: the joined one) that answers: `firstChoice`, else the first preferred one, else
    // the one in use. Throws 1355, 1212.
    std::string AnyController(const std::string& firstChoice, const std::string& domain) const;
    // "user@corp.test", spelled as in the directory, for "user", "user@domain" and "DOMAIN\user" of the own domain or a
    // trusted one. Throws 1317 (unknown), 1315 (malformed), 2692 (not joined), and as `TrustedDomains`.
    std::string CanonicalUserName(const std::string& name) const;
    // "host/node01.corp.test@CORP.TEST" for the own domain and those with a trust. Throws 1355 otherwise.
    std::string HostPrincipal(const std::string& domain) const;

 private:
    Settings _settings;
    LogInSoftware& _logIns;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_HOST_H_
