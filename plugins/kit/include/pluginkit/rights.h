// Who else than its owner may do something with a file or a folder.
//
// Root's own group is nobody else: what is made under the umask 002 has its rights, and whoever is put in it is to have
// what root has left to it. On a file with an access list (acl(5)) the group's part of the mode says what everybody on
// that list may do at most.

#ifndef NIMBREL_PLUGINKIT_RIGHTS_H_
#define NIMBREL_PLUGINKIT_RIGHTS_H_

#include <sys/types.h>

#include <string>

#include "pluginkit/descriptor.h"

namespace nimbrel::kit {

// Of further users and groups. Follows links, which have none of their own.
bool HasAccessList(const std::string& path);
bool HasAccessList(const Descriptor& file);

// Whether the group's part of the mode gives others than root `right`, one of S_IRGRP, S_IWGRP and S_IXGRP or several.
inline bool OthersInGroupMay(mode_t right, mode_t mode, gid_t group, bool hasAccessList) {
    return (mode & right) != 0 && (group != 0 || hasAccessList);
}

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_RIGHTS_H_
