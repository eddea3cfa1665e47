// Who may change what root's processes load and obey. Each check takes the paths below `root`, the empty text for the
// host itself.

#ifndef NIMAUTHCTL_CHECKS_RIGHTS_H_
#define NIMAUTHCTL_CHECKS_RIGHTS_H_

#include <sys/types.h>

#include <string>

#include "tools/nimauthctl/checks/finding.h"

namespace nimbrel::nimauthctl {

struct FileRights {
    uid_t owner = 0;
    gid_t group = 0;
    mode_t mode = 0;
    bool hasAccessList = false;  // of further users or groups
};

// How anybody but root could change such a file: "belongs to user 1000", "may be written by everybody". Empty if nobody
// could. Root's own group is nobody else: a folder made under the umask 002 has that right.
std::string WhoElseMayWrite(const FileRights& rights);

// The same of a file that holds secrets, and is no link: "may be read by everybody" too.
std::string WhoElseMayOpen(const FileRights& rights);

// Each looks at the folders on the way from the root, too: who may write one of them may put other files in place.
//
// /etc/nimbrel, /etc/nimbrel/nimauth and the files in them: they say which provider is loaded.
Finding CheckSettingsFiles(const std::string& root);
// /var/lib/nimbrel and what is in it: the configuration store, the embedded directory, memberships, the journal of the
// log-in files. All but the published accounts are for root alone. What is not there yet is in order.
Finding CheckStateFiles(const std::string& root);
// The host's certificate and key for a proxy that asks for one: the files that apxhttps.conf names. The key is for root
// alone; that a group may read it, as some distributions have it, or users on an access list, is a warning. No file, and
// no name, are in order.
Finding CheckProxyFiles(const std::string& root);
// /usr/libexec/nimauth and what is in it: the providers, and what else runs with root's rights.
Finding CheckProviderFiles(const std::string& root);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_RIGHTS_H_
