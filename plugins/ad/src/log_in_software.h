// The log-in software of this host, SSSD, as the provider's operations use it.

#ifndef NIMBREL_AD_DOMAIN_LOG_IN_SOFTWARE_H_
#define NIMBREL_AD_DOMAIN_LOG_IN_SOFTWARE_H_

#include <string>
#include <vector>

#include "addirectory/log_in_software.h"
#include "addirectory/settings.h"
#include "adlogins/log_ins.h"

namespace nimbrel::ad {

// Steps outside the gate for each call: it waits for seconds, for its turn and for SSSD, and neither a fork nor the end
// of the process is to wait for that.
class DomainLogInSoftware : public LogInSoftware {
 public:
    explicit DomainLogInSoftware(const Settings& settings);

    void Enable(const JoinedDomain& domain) override;
    void Disable() override;
    void DisableDomain() override;
    void SetPreferredControllers(const std::vector<std::string>& controllers) override;
    void SetSmartCardServices(const std::vector<std::string>& services) override;
    std::vector<std::string> SmartCardServices() const override;

 private:
    LogIns _logIns;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_DOMAIN_LOG_IN_SOFTWARE_H_
