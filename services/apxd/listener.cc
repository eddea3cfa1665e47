#include "services/apxd/listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <system_error>

namespace nimbrel::apxd {
namespace {

constexpr int kBacklog = 512;

[[noreturn]] void FailWith(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

}  // namespace

Listener::Listener(const Config& config) : _descriptor(-1) {
    const bool ipv6 = config.address.find(':') != std::string::npos;
    _descriptor = socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (_descriptor < 0) FailWith(errno, "socket");
    const int on = 1;
    setsockopt(_descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const auto port = htons(static_cast<std::uint16_t>(config.port));
    sockaddr_in ipv4Address = {};
    sockaddr_in6 ipv6Address = {};
    ipv4Address.sin_family = AF_INET;
    ipv4Address.sin_port = port;
    ipv6Address.sin6_family = AF_INET6;
    ipv6Address.sin6_port = port;
    inet_pton(AF_INET, config.address.c_str(), &ipv4Address.sin_addr);
    inet_pton(AF_INET6, config.address.c_str(), &ipv6Address.sin6_addr);
    const auto* const address =
        ipv6 ? reinterpret_cast<const sockaddr*>(&ipv6Address) : reinterpret_cast<const sockaddr*>(&ipv4Address);
    if (bind(_descriptor, address, ipv6 ? sizeof ipv6Address : sizeof ipv4Address) != 0 ||
        listen(_descriptor, kBacklog) != 0) {
        const int error = errno;
        close(_descriptor);
        FailWith(error, config.address + ':' + std::to_string(config.port));
    }
}

Listener::~Listener() { close(_descriptor); }

void Listener::End() { shutdown(_descriptor, SHUT_RDWR); }

std::string Listener::Address() const {
    sockaddr_storage bound = {};
    socklen_t size = sizeof bound;
    getsockname(_descriptor, reinterpret_cast<sockaddr*>(&bound), &size);
    sockaddr_in6 ipv6 = {};
    std::memcpy(&ipv6, &bound, sizeof ipv6);  // the port lies at the same place in both
    const auto address = apxd::Address::From(reinterpret_cast<const sockaddr&>(bound));
    return (address ? address->Text() : "unknown") + ' ' + std::to_string(ntohs(ipv6.sin6_port));
}

}  // namespace nimbrel::apxd
