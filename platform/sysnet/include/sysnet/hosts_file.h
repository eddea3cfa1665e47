// The hosts file: which names stand for which addresses before DNS is asked.
//
// A sample:
//
//     1  # The host's own names.
//     2  127.0.0.1       localhost
//     3  192.0.2.10      node01.old.test node01   # rack 4
//     4
//     5  ::1     localhost ip6-localhost
//     6  192.0.2.10      intranet                 # until the move
//
// After AddOrReplaceEntry("192.0.2.10", "node01.corp.test", {"node01"}):
//
//     1  # The host's own names.
//     2  127.0.0.1       localhost
//     3  192.0.2.10	node01.corp.test node01   # rack 4
//     4
//     5  ::1     localhost ip6-localhost
//     6                                  # until the move
//
// An address's entry is everything the file says about that address. Its first line (3) takes the new entry and keeps the
// comment behind it; a further line of the same address (6) goes, and its comment stays. Every other byte of the file is
// kept: comments, order, blanks, line ends, and whether the last line has one. A new address is added at the end.
//
// The file is replaced as a whole (a temporary file next to it, then a rename) with its mode, owner and extended
// attributes kept, so that a reader sees the old file or the new one. A symbolic link is followed and its target
// replaced. Where the file cannot be replaced because it is a mount point, or its folder or owner does not allow it, its
// bytes are rewritten in place. A missing file is created with mode 0644. An entry that is already as wanted writes
// nothing.
//
// Errors: HostMgmt::Lib::HostMgmtException with the path and the system's text; the file is then as it was.
//
// Threads: any number of threads may use one object or several. Changes made to one file at the same moment are not
// merged: the last one to finish wins whole. A thread that is cancelled in a call ends after it.

#ifndef SYSNET_HOSTS_FILE_H_
#define SYSNET_HOSTS_FILE_H_

#include <string>
#include <vector>

#include "hostmgmt/exceptions.h"

namespace SysNet::Network {

class __attribute__((visibility("default"))) HostsFile {
 public:
    // The host's own file, /etc/hosts. Opens nothing yet.
    HostsFile();

    explicit HostsFile(std::string path);

    // Makes `hostName` and `aliases`, in this order, the names of `address`, and nothing else. The first name is the
    // address's official one.
    //
    // Throws HostMgmtException, before the file is opened, if the address is neither an IPv4 nor an IPv6 address, or if
    // a name is empty or holds a blank, a "#", or anything else than printable ASCII.
    void AddOrReplaceEntry(const std::string& address, const std::string& hostName,
                           const std::vector<std::string>& aliases);

 private:
    std::string _path;
};

}  // namespace SysNet::Network

#endif  // SYSNET_HOSTS_FILE_H_
