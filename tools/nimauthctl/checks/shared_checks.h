// The checks that a host needs before a join and after it.

#ifndef NIMAUTHCTL_CHECKS_SHARED_CHECKS_H_
#define NIMAUTHCTL_CHECKS_SHARED_CHECKS_H_

#include "tools/nimauthctl/checks/check.h"

namespace nimbrel::nimauthctl {

Finding CheckUserIsRoot(CheckSubject& subject);

// Learns the provider's name.
Finding CheckProviderSettings(CheckSubject& subject);
// Loads the provider, and learns its log-in modules.
Finding CheckProvider(CheckSubject& subject);

Finding CheckHostNameResolves(CheckSubject& subject);
Finding CheckDomainResolves(CheckSubject& subject);
// Whether one of the domain's controllers answers now.
Finding CheckController(CheckSubject& subject);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_SHARED_CHECKS_H_
