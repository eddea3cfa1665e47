// What the host's own files say about who may log in. Read only.

#ifndef NIMAUTHCTL_CHECKS_LOGIN_FILES_H_
#define NIMAUTHCTL_CHECKS_LOGIN_FILES_H_

#include <optional>
#include <string>
#include <vector>

namespace nimbrel::nimauthctl {

// Whether the line of `database` in nsswitch.conf's text names the service.
bool NamesService(const std::string& nsswitch, const std::string& database, const std::string& service);

// The files that match the pattern below `root`, sorted, without `root`.
std::vector<std::string> AllMatches(const std::string& root, const std::string& pattern);
// The first file that matches one of the patterns below `root`; empty if there is none.
std::string FirstMatch(const std::string& root, const std::vector<std::string>& patterns);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_LOGIN_FILES_H_
