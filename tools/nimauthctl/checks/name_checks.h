// The rules for the host's own name.

#ifndef NIMAUTHCTL_CHECKS_NAME_CHECKS_H_
#define NIMAUTHCTL_CHECKS_NAME_CHECKS_H_

#include <string>

#include "tools/nimauthctl/checks/check.h"

namespace nimbrel::nimauthctl {

// For whoever knows the names already: the kernel's, and `fullName`, the resolver's.
Finding CheckShortName(const std::string& hostName, const std::string& fullName);
Finding CheckDefaultName(const std::string& hostName);
Finding CheckAccountName(const std::string& hostName);
Finding CheckFullName(const std::string& hostName, const std::string& fullName, const std::string& domain);

// What the kernel and the resolver call this host. The second throws `ToolError` if the name does not resolve.
std::string KernelHostName();
std::string ResolvedHostName(const CheckSubject& subject);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_NAME_CHECKS_H_
