#include "hostmgmt/network.h"

#include <arpa/inet.h>

#include <utility>

namespace HostMgmt::Network {

Ipv4Address::Ipv4Address(const std::string& text) : _text(text) {
    if (IsValidAddress(text)) return;
    throw Lib::HostMgmtException(("'" + text + "' is not an IPv4 address").c_str());
}

bool Ipv4Address::IsValidAddress(const std::string& text) {
    in_addr address = {};
    const bool endsAtItsFirstNul = text.find('\0') == std::string::npos;
    return endsAtItsFirstNul && inet_pton(AF_INET, text.c_str(), &address) == 1;
}

IpConfig::IpConfig(Ipv4Address address) : _address(std::move(address)) {}

}  // namespace HostMgmt::Network
