#include "sockets.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <system_error>
#include <thread>

#include "addirectory/ad_error.h"
#include "gate.h"

namespace nimbrel::ad {
namespace {

[[noreturn]] void FailTime() { throw NoAnswerError("The other side did not answer in time"); }

[[noreturn]] void FailSocket(int error) {
    if (error == ECONNRESET || error == EPIPE) {
        throw NoAnswerError("The other side closed the connection");
    }
    throw AdError(kStatusNoSuchDomain, "The connection failed: " + std::generic_category().message(error));
}

kit::Descriptor OpenSocket(const Endpoint& endpoint, int type) {
    kit::Descriptor socket_(socket(endpoint.Family(), type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket_.Number() < 0) {
        const int error = errno;
        FailSocket(error);
    }
    return socket_;
}

void FinishConnecting(int socket_, const Deadline& deadline) {
    if (!WaitFor(socket_, POLLOUT, deadline)) {
        FailTime();
    }
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
        FailSocket(error);
    }
}

bool IsTransient(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

}  // namespace

std::optional<Endpoint> Endpoint::FromText(const std::string& address, std::uint16_t port) {
    std::array<unsigned char, sizeof(in6_addr)> binary = {};
    if (inet_pton(AF_INET, address.c_str(), binary.data()) == 1) {
        return FromIPv4(binary.data(), port);
    }
    if (inet_pton(AF_INET6, address.c_str(), binary.data()) == 1) {
        return FromIPv6(binary.data(), port);
    }
    return std::nullopt;
}

Endpoint Endpoint::FromIPv4(const void* address, std::uint16_t port) {
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(port);
    std::memcpy(&ipv4.sin_addr, address, sizeof ipv4.sin_addr);
    Endpoint endpoint;
    std::memcpy(&endpoint._storage, &ipv4, sizeof ipv4);
    return endpoint;
}

Endpoint Endpoint::FromIPv6(const void* address, std::uint16_t port) {
    sockaddr_in6 ipv6 = {};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(port);
    std::memcpy(&ipv6.sin6_addr, address, sizeof ipv6.sin6_addr);
    Endpoint endpoint;
    std::memcpy(&endpoint._storage, &ipv6, sizeof ipv6);
    return endpoint;
}

// The port stands at the same place in both kinds of address.
Endpoint Endpoint::WithPort(std::uint16_t port) const {
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    Endpoint endpoint = *this;
    const in_port_t bigEndian = htons(port);
    std::memcpy(reinterpret_cast<char*>(&endpoint._storage) + offsetof(sockaddr_in, sin_port), &bigEndian,
                sizeof bigEndian);
    return endpoint;
}

const sockaddr* Endpoint::Address() const { return reinterpret_cast<const sockaddr*>(&_storage); }

socklen_t Endpoint::Size() const { return Family() == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6); }

std::string Endpoint::Text() const {
    std::array<char, INET6_ADDRSTRLEN> text = {};
    const char* storage = reinterpret_cast<const char*>(&_storage);
    const auto offset = Family() == AF_INET ? offsetof(sockaddr_in, sin_addr) : offsetof(sockaddr_in6, sin6_addr);
    inet_ntop(Family(), storage + offset, text.data(), text.size());
    return text.data();
}

bool WaitFor(int socket_, short events, const Deadline& deadline) {
    const OutsideGate waiting;
    while (true) {
        pollfd one = {socket_, events, 0};
        const int ready = poll(&one, 1, static_cast<int>(deadline.Remaining().count()));
        if (ready > 0) {
            return true;
        }
        if ((ready == 0 && deadline.HasPassed()) || (ready < 0 && errno != EINTR)) {
            return false;
        }
    }
}

kit::Descriptor ConnectTcp(const Endpoint& endpoint, const Deadline& deadline) {
    kit::Descriptor socket_ = OpenSocket(endpoint, SOCK_STREAM);
    const int on = 1;
    setsockopt(socket_.Number(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // What was given up is not sent either: else the kernel would still deliver a deletion or a new password minutes
    // later, when the way to the controller is open again, and undo the next join.
    const linger discard = {1, 0};
    setsockopt(socket_.Number(), SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
    if (connect(socket_.Number(), endpoint.Address(), endpoint.Size()) != 0) {
        const int error = errno;
        if (error != EINPROGRESS && error != EINTR) {
            FailSocket(error);
        }
        FinishConnecting(socket_.Number(), deadline);
    }
    return socket_;
}

kit::Descriptor ConnectUdp(const Endpoint& endpoint) {
    kit::Descriptor socket_ = OpenSocket(endpoint, SOCK_DGRAM);
    if (connect(socket_.Number(), endpoint.Address(), endpoint.Size()) != 0) {
        const int error = errno;
        FailSocket(error);
    }
    return socket_;
}

bool HasRoute(const Endpoint& endpoint) {
    try {
        ConnectUdp(endpoint.WithPort(1));  // sends nothing
        return true;
    } catch (const AdError&) {
        return false;
    }
}

void SendAll(int socket_, std::string_view bytes, const Deadline& deadline) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        const int error = errno;
        if (!IsTransient(error)) {
            FailSocket(error);
        }
        if (!WaitFor(socket_, POLLOUT, deadline)) {
            FailTime();
        }
    }
}

void ReceiveExactly(int socket_, char* bytes, std::size_t size, const Deadline& deadline) {
    while (size > 0) {
        const ssize_t got = recv(socket_, bytes, size, 0);
        if (got > 0) {
            bytes += got;
            size -= static_cast<std::size_t>(got);
            continue;
        }
        const int error = got == 0 ? ECONNRESET : errno;
        if (!IsTransient(error)) {
            FailSocket(error);
        }
        if (!WaitFor(socket_, POLLIN, deadline)) {
            FailTime();
        }
    }
}

void PauseBeforeRetry(int attempt, const Deadline& deadline) {
    thread_local std::minstd_rand random(std::random_device{}());
    const int longest = std::min(100 << std::min(attempt - 1, 2), 400);
    const std::chrono::milliseconds pause(std::uniform_int_distribution<int>(longest / 4, longest)(random));
    const OutsideGate waiting;
    std::this_thread::sleep_for(std::min(pause, deadline.Remaining()));
}

std::string ExchangeFrames(const Endpoint& endpoint, std::string_view request, std::size_t lengthBytes,
                           std::size_t maximumReply, const Deadline& deadline) {
    const kit::Descriptor socket_ = ConnectTcp(endpoint, deadline);
    std::string frame;
    for (std::size_t i = lengthBytes; i-- > 0;) {
        frame += static_cast<char>(request.size() >> (8 * i) & 0xff);
    }
    SendAll(socket_.Number(), frame.append(request), deadline);
    std::array<char, 4> length = {};
    ReceiveExactly(socket_.Number(), length.data(), lengthBytes, deadline);
    std::size_t size = 0;
    for (std::size_t i = 0; i < lengthBytes; ++i) {
        size = size << 8 | static_cast<unsigned char>(length.at(i));
    }
    if (size > maximumReply) {
        throw AdError(kStatusNoSuchDomain, "The other side's answer is too long");
    }
    std::string reply(size, '\0');
    ReceiveExactly(socket_.Number(), reply.data(), reply.size(), deadline);
    return reply;
}

}  // namespace nimbrel::ad
