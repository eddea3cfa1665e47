// What the kernel knows about links, addresses and routes, asked over a NETLINK_ROUTE socket.
//
// A socket of its own in place of a netlink library: three dumps with five attributes are all that is needed, and
// nothing has to be loaded into every process that uses this library.
//
// Errors: HostMgmtException with the system's text.
//
// Threads: any number at once; each call uses a socket of its own.

#ifndef SYSNET_SRC_NETLINK_H_
#define SYSNET_SRC_NETLINK_H_

#include <cstdint>
#include <string>
#include <vector>

namespace SysNet::Network {

struct Link {
    int index = 0;
    std::string name;
    bool up = false;
    bool loopback = false;
};

struct Ipv4OfLink {
    int index = 0;
    std::string address;
    bool global = false;
};

struct DefaultRoute {
    int index = 0;
    std::uint32_t metric = 0;
};

// All links, in the order of their index.
std::vector<Link> QueryLinks();

// All IPv4 addresses, in the kernel's order: of each link its first address first.
std::vector<Ipv4OfLink> QueryIpv4Addresses();

// The IPv4 default routes of the main table that lead to a link, the lowest metric first; one for each next hop. Those of
// equal metric stay in the kernel's order.
std::vector<DefaultRoute> QueryDefaultRoutes();

}  // namespace SysNet::Network

#endif  // SYSNET_SRC_NETLINK_H_
