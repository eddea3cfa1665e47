// The checks that look at this host alone. Each takes the paths below `root`, the empty text for the host itself.

#ifndef NIMAUTHCTL_CHECKS_HOST_CHECKS_H_
#define NIMAUTHCTL_CHECKS_HOST_CHECKS_H_

#include <string>

#include "tools/nimauthctl/checks/finding.h"

namespace nimbrel::nimauthctl {

// Whether something keeps the clock right. That it is right only the domain can tell: see the trust state.
Finding CheckClock();
// Whether the host is still called what its machine account is: "CN=NODE01,...".
Finding CheckHostName(const std::string& hostName, const std::string& machineAccount);

// The name-service switch, and the PAM services "login" and "sshd" as far as they are there, lead to the provider's
// modules; and these are installed.
Finding CheckNameService(const std::string& root, const std::string& service);
Finding CheckPam(const std::string& root, const std::string& module);

// SSSD, for providers whose name service is its "sss". `domain` is the DNS name.
Finding CheckSssdInstalled(const std::string& root);
Finding CheckSssdConfiguration(const std::string& root, const std::string& domain);
Finding CheckSssdRuns(const std::string& root);
// The keytab that SSSD's configuration of the domain names, else /etc/krb5.keytab.
Finding CheckKeytab(const std::string& root, const std::string& domain);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_HOST_CHECKS_H_
