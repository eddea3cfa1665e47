// IPv4 addresses of the host, as values.
//
//     if (HostMgmt::Network::Ipv4Address::IsValidAddress(text)) Use(HostMgmt::Network::Ipv4Address(text));
//
// Threads: plain values; many threads may read one, or one may change it.

#ifndef HOSTMGMT_NETWORK_H_
#define HOSTMGMT_NETWORK_H_

#include <string>

#include "hostmgmt/exceptions.h"

namespace HostMgmt::Network {

// An IPv4 address: four decimal numbers from 0 to 255 without leading zeros, separated by dots, and nothing else.
// "192.0.2.10" is one; "192.0.2", "192.0.2.010", " 192.0.2.10", "192.0.2.10/24", "::1" and "host1" are not.
class __attribute__((visibility("default"))) Ipv4Address {
 public:
    // Throws HostMgmt::Lib::HostMgmtException if `IsValidAddress(text)` is false.
    explicit Ipv4Address(const std::string& text);

    static bool IsValidAddress(const std::string& text);

    // For example "192.0.2.10".
    std::string GetStringAddress() const { return _text; }

 private:
    std::string _text;
};

// The IP configuration of a network interface.
class __attribute__((visibility("default"))) IpConfig {
 public:
    explicit IpConfig(Ipv4Address address);

    const Ipv4Address& GetIpv4Address() const { return _address; }

 private:
    Ipv4Address _address;
};

}  // namespace HostMgmt::Network

#endif  // HOSTMGMT_NETWORK_H_
