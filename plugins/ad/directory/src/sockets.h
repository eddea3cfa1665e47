// Sockets whose every wait ends with a deadline.
//
// Errors: `NoAnswerError` when the other side closes or does not answer in time; `AdError` with 1355 when it refuses or
// there is no way to it.

#ifndef NIMBREL_AD_SOCKETS_H_
#define NIMBREL_AD_SOCKETS_H_

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "deadline.h"
#include "pluginkit/descriptor.h"

namespace nimbrel::ad {

// An IPv4 or IPv6 address with a port.
class Endpoint {
 public:
    // Unset for anything but a numeric address.
    static std::optional<Endpoint> FromText(const std::string& address, std::uint16_t port);
    static Endpoint FromIPv4(const void* address, std::uint16_t port);
    static Endpoint FromIPv6(const void* address, std::uint16_t port);

    Endpoint WithPort(std::uint16_t port) const;
    int Family() const { return _storage.ss_family; }
    const sockaddr* Address() const;
    socklen_t Size() const;
    std::string Text() const;  // "10.99.0.2", "fd00::2"

 private:
    sockaddr_storage _storage = {};
};

// True when the socket is ready for `events` (poll's), false when the deadline has passed. Steps outside the gate.
bool WaitFor(int socket, short events, const Deadline& deadline);

kit::Descriptor ConnectTcp(const Endpoint& endpoint, const Deadline& deadline);
// A datagram socket that takes answers of this peer only.
kit::Descriptor ConnectUdp(const Endpoint& endpoint);
// Whether this host has a way to the address, by its own routing table.
bool HasRoute(const Endpoint& endpoint);
void SendAll(int socket, std::string_view bytes, const Deadline& deadline);
void ReceiveExactly(int socket, char* bytes, std::size_t size, const Deadline& deadline);

// Up to 100 ms, then 200 ms, then 400 ms, at random: those who came together are not to come together again. Attempts
// count from 1.
void PauseBeforeRetry(int attempt, const Deadline& deadline);

// One exchange in which request and reply each follow their length: `lengthBytes` bytes, big endian.
std::string ExchangeFrames(const Endpoint& endpoint, std::string_view request, std::size_t lengthBytes,
                           std::size_t maximumReply, const Deadline& deadline);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_SOCKETS_H_
