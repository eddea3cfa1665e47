// The network interfaces of the host.
//
//     const auto interface = SysNet::Network::NetworkInfoImpl().GetManagementInterface();
//     const std::string address = interface->GetIpConfig().GetIpv4Address().GetStringAddress();
//
// The management interface is the one whose address stands for the host. An administrator may name it in
// /etc/nimbrel/network.conf:
//
//     1  # The interface that the management network is plugged into.
//     2  management-interface = eth1
//
// A line is blank, a comment (its first character other than a blank is "#"), or the one setting; anything else is an
// error that names the line. A named interface that does not exist, or has no IPv4 address but loopback ones (127.0.0.0/8),
// is an error: another address must not quietly stand for the host.
//
// Where none is named, it is the interface with the IPv4 default route of the main table with the lowest metric, and
// where no default route leads to an interface with an IPv4 address, the first interface (in the order in which they
// were created) that is up, is not a loopback and has an IPv4 address. Of several addresses of an interface it is the
// first, one of global scope before others, and a loopback address last.
//
// Errors: HostMgmt::Lib::HostMgmtException.
//
// Threads: any number of threads may use one object; what it returns never changes. A thread that is cancelled in
// a call ends after it.

#ifndef SYSNET_NETWORK_INFO_H_
#define SYSNET_NETWORK_INFO_H_

#include <memory>
#include <string>

#include "hostmgmt/exceptions.h"
#include "hostmgmt/network.h"

namespace SysNet::Network {

// An interface as it was when it was asked for.
class __attribute__((visibility("default"))) NetworkInterface {
 public:
    NetworkInterface(std::string name, HostMgmt::Network::IpConfig ipConfig);

    // For example "eth0".
    const std::string& GetName() const { return _name; }

    HostMgmt::Network::IpConfig GetIpConfig() const { return _ipConfig; }

 private:
    std::string _name;
    HostMgmt::Network::IpConfig _ipConfig;
};

class __attribute__((visibility("default"))) NetworkInfoImpl {
 public:
    // Asks nothing yet.
    NetworkInfoImpl();

    // The management interface at this moment; never null. Throws HostMgmtException if there is none, if the file is
    // wrong or cannot be read, or if the system does not answer.
    std::shared_ptr<NetworkInterface> GetManagementInterface() const;
};

}  // namespace SysNet::Network

#endif  // SYSNET_NETWORK_INFO_H_
