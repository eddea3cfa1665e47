// The DNS search domains of the host: what is tried behind a name that has no dot.
//
//     SysNet::Network::DnsConfigImpl dns("defaultTcpipStack");
//     dns.AddUserSearchDomain("corp.test");
//     dns.SaveConfig();
//
// Where systemd-resolved manages /etc/resolv.conf (the file is a symbolic link to one that resolved writes or ships), the
// domains go into /etc/systemd/resolved.conf.d/50-nimauth.conf:
//
//     [Resolve]
//     Domains=corp.test
//
// Domains, options and comments that this file already has stay. resolved reads it when it starts, so SaveConfig then
// runs "systemctl try-reload-or-restart systemd-resolved.service" and waits for it, 20 seconds at most; not if all of the
// domains were in the file and are in the resolv.conf that resolved keeps, so that a caller who tries a join again and
// again does not restart the host's resolver each time. Where systemd is not running, or the command fails, the domains
// are stored all the same and hold from resolved's next start.
//
// Everywhere else /etc/resolv.conf itself is edited, through a symbolic link in its target:
//
//     1  # Written by hand.
//     2  nameserver 192.0.2.53
//     3  search old.test
//     4  search a.test b.test
//     5  options edns0
//
// Of several "search" and "domain" lines the resolver uses the last (4), so that one becomes "search a.test b.test
// corp.test". If the last one is a "domain" line, it stays and a "search" line with its domain and the new ones follows
// it. A file without either gets a "search" line at its end, and the resolver then no longer derives a domain from the
// host's name. All other bytes are kept. Domains are compared without regard to case and to a final dot, and none is
// added twice.
//
// Both files are replaced as sysnet/hosts_file.h says.
//
// Errors: HostMgmt::Lib::HostMgmtException with the path and the system's text; the files are then as they were.
//
// Threads: an object belongs to one thread. Changes made to one file at the same moment are not merged: the last one to
// finish wins whole. A thread that is cancelled in a call ends after it.

#ifndef SYSNET_DNS_CONFIG_H_
#define SYSNET_DNS_CONFIG_H_

#include <string>
#include <vector>

#include "hostmgmt/exceptions.h"

namespace SysNet::Network {

class __attribute__((visibility("default"))) DnsConfigImpl {
 public:
    // The configuration of one network stack of the host. The only one is "defaultTcpipStack"; any other name is a
    // HostMgmtException.
    explicit DnsConfigImpl(const std::string& netStackName);

    // Adds a domain to those that the next SaveConfig writes, behind all others. Throws HostMgmtException if it is not a
    // domain name: labels of letters, digits, "-" and "_", joined by dots.
    void AddUserSearchDomain(const std::string& domain);

    // Writes the added domains. Does nothing if none was added since the last time; writes nothing if all of them are
    // there already.
    void SaveConfig();

 private:
    std::vector<std::string> _added;
};

}  // namespace SysNet::Network

#endif  // SYSNET_DNS_CONFIG_H_
