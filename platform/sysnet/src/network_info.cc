#include "sysnet/network_info.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "internal/no_cancellation.h"
#include "netlink.h"
#include "network_conf.h"
#include "system_error.h"
#include "text_file.h"

namespace SysNet::Network {
namespace {

using HostMgmt::Lib::HostMgmtException;
using HostMgmt::Network::IpConfig;
using HostMgmt::Network::Ipv4Address;

constexpr char kNetworkConf[] = "/etc/nimbrel/network.conf";

bool IsLoopback(const std::string& address) { return address.compare(0, 4, "127.") == 0; }

// The links and addresses of one moment.
class Interfaces {
 public:
    // The interface if it has an IPv4 address; null otherwise.
    std::shared_ptr<NetworkInterface> WithAddress(const Link& link) const {
        const auto address = AddressOf(link.index);
        if (!address) return nullptr;
        return std::make_shared<NetworkInterface>(link.name, IpConfig(Ipv4Address(*address)));
    }

    const Link* ByName(const std::string& name) const {
        for (const Link& link : _links) {
            if (link.name == name) return &link;
        }
        return nullptr;
    }

    const Link* ByIndex(int index) const {
        for (const Link& link : _links) {
            if (link.index == index) return &link;
        }
        return nullptr;
    }

    const std::vector<Link>& Links() const { return _links; }

 private:
    // The first of the lowest rank.
    std::optional<std::string> AddressOf(int index) const {
        const Ipv4OfLink* best = nullptr;
        for (const Ipv4OfLink& candidate : _addresses) {
            if (candidate.index != index) continue;
            if (best == nullptr || Rank(candidate) < Rank(*best)) best = &candidate;
        }
        return best == nullptr ? std::nullopt : std::optional(best->address);
    }

    // Somebody may have given a loopback address global scope; it is no address of the host's all the same.
    static int Rank(const Ipv4OfLink& address) {
        if (IsLoopback(address.address)) return 2;
        return address.global ? 0 : 1;
    }

    const std::vector<Link> _links = QueryLinks();
    const std::vector<Ipv4OfLink> _addresses = QueryIpv4Addresses();
};

// A loopback interface may carry an address of the host's own; those that every host has stand for none.
std::shared_ptr<NetworkInterface> Named(const Interfaces& interfaces, const std::string& name) {
    const Link* const link = interfaces.ByName(name);
    if (link == nullptr) ThrowFileError("use", kNetworkConf, "there is no interface '" + name + "'");
    auto interface = interfaces.WithAddress(*link);
    if (interface == nullptr) ThrowFileError("use", kNetworkConf, "the interface '" + name + "' has no IPv4 address");
    if (IsLoopback(interface->GetIpConfig().GetIpv4Address().GetStringAddress())) {
        ThrowFileError("use", kNetworkConf, "the interface '" + name + "' has no IPv4 address but a loopback one");
    }
    return interface;
}

std::shared_ptr<NetworkInterface> WithDefaultRoute(const Interfaces& interfaces) {
    for (const DefaultRoute& route : QueryDefaultRoutes()) {
        const Link* const link = interfaces.ByIndex(route.index);
        if (link == nullptr || link->loopback) continue;
        if (auto interface = interfaces.WithAddress(*link)) return interface;
    }
    return nullptr;
}

std::shared_ptr<NetworkInterface> FirstThatIsUp(const Interfaces& interfaces) {
    for (const Link& link : interfaces.Links()) {
        if (!link.up || link.loopback) continue;
        if (auto interface = interfaces.WithAddress(link)) return interface;
    }
    return nullptr;
}

}  // namespace

NetworkInterface::NetworkInterface(std::string name, IpConfig ipConfig)
    : _name(std::move(name)), _ipConfig(std::move(ipConfig)) {}

NetworkInfoImpl::NetworkInfoImpl() = default;

std::shared_ptr<NetworkInterface> NetworkInfoImpl::GetManagementInterface() const {
    const nimbrel::internal::NoCancellation noCancellation;
    const auto name = ParseManagementInterface(kNetworkConf, ReadTextFile(kNetworkConf).value_or(""));
    const Interfaces interfaces;
    if (name) return Named(interfaces, *name);
    if (auto interface = WithDefaultRoute(interfaces)) return interface;
    if (auto interface = FirstThatIsUp(interfaces)) return interface;
    throw HostMgmtException("No network interface is up and has an IPv4 address");
}

}  // namespace SysNet::Network
