// Who may change what root's processes load and obey. Each check takes the paths below `root`, the empty text for the
// host itself.

#ifndef NIMAUTHCTL_CHECKS_RIGHTS_H_
#define NIMAUTHCTL_CHECKS_RIGHTS_H_

#include <sys/types.h>

#include <string>

#include "tools/nimauthctl/checks/finding.h"

namespace nimbrel::nimauthctl {

// How anybody but root could change a file of this owner and mode: "belongs to user 1000", "may be written by everybody".
// Empty if nobody could.
std::string WhoElseMayWrite(uid_t owner, mode_t mode);

// /etc/nimbrel, /etc/nimbrel/nimauth and the files in them: they say which provider is loaded.
Finding CheckSettingsFiles(const std::string& root);
// /usr/libexec/nimauth and what is in it: the providers, and what else runs with root's rights.
Finding CheckProviderFiles(const std::string& root);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_RIGHTS_H_
