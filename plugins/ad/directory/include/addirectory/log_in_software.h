// What a join has to tell the software through which domain users log in. The provider is given an implementation; the
// services that use this library for other work need none.

#ifndef NIMBREL_AD_LOG_IN_SOFTWARE_H_
#define NIMBREL_AD_LOG_IN_SOFTWARE_H_

#include <string>
#include <vector>

namespace nimbrel::ad {

struct JoinedDomain {
    std::string dnsName;                      // "corp.test"
    std::string realm;                        // "CORP.TEST"
    std::string netbiosName;                  // "CORP"
    std::string hostName;                     // "node01.corp.test"
    std::string machineAccount;               // "NODE01$"
    std::string keytab;                       // "/etc/krb5.keytab"
    std::vector<std::string> trustedForests;  // DNS names of domains whose users may log in as well
};

// Threads: any calls at once. Each throws when it cannot do its work, and has changed nothing then.
class LogInSoftware {
 public:
    virtual ~LogInSoftware() = default;

    virtual void Enable(const JoinedDomain& domain) = 0;
    // Does nothing where nothing is enabled.
    virtual void Disable() = 0;
    // Takes `Enable` back: what was set before a join is kept for the next one.
    virtual void DisableDomain() = 0;
    virtual void SetPreferredControllers(const std::vector<std::string>& controllers) = 0;
    virtual void SetSmartCardServices(const std::vector<std::string>& services) = 0;
    virtual std::vector<std::string> SmartCardServices() const = 0;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_LOG_IN_SOFTWARE_H_
