#include "plugins/ad/domain/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace nimbrel::ad::test {
namespace {

// Of version 4 or 6.
union Address {
    sockaddr any;
    sockaddr_in ipv4;
    sockaddr_in6 ipv6;
};

Address AddressOf(const std::string& address, std::uint16_t port) {
    Address result = {};
    if (inet_pton(AF_INET, address.c_str(), &result.ipv4.sin_addr) == 1) {
        result.ipv4.sin_family = AF_INET;
        result.ipv4.sin_port = htons(port);
    } else if (inet_pton(AF_INET6, address.c_str(), &result.ipv6.sin6_addr) == 1) {
        result.ipv6.sin6_family = AF_INET6;
        result.ipv6.sin6_port = htons(port);
    } else {
        throw std::runtime_error(address);
    }
    return result;
}

constexpr unsigned kPorts = 16;  // of one process

// Below those that the kernel gives to connections, as a domain wants the same one again: for datagrams and connections,
// at other addresses, after a while. Each process has ports of its own.
std::uint16_t NextPort() {
    constexpr unsigned kFirst = 10240;
    constexpr unsigned kEnd = 32768;
    static std::atomic<unsigned> next = 0;
    const unsigned block = static_cast<unsigned>(getpid()) % ((kEnd - kFirst) / kPorts);
    return static_cast<std::uint16_t>(kFirst + block * kPorts + next++ % kPorts);
}

// -1 if the port is taken.
int TryBind(int type, const std::string& address, std::uint16_t port) {
    const Address bound = AddressOf(address, port);
    const int opened = socket(bound.any.sa_family, type | SOCK_CLOEXEC, 0);
    const int on = 1;  // for connections that have ended; two sockets for datagrams would share the port
    if (type == SOCK_STREAM) setsockopt(opened, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(opened, &bound.any, sizeof bound) == 0) return opened;
    close(opened);
    return -1;
}

int Bind(int type, const std::string& address, std::uint16_t port) {
    int bound = -1;
    for (unsigned tries = 0; bound < 0 && tries < (port == 0 ? kPorts : 1); ++tries) {
        bound = TryBind(type, address, port == 0 ? NextPort() : port);
    }
    if (bound < 0) throw std::runtime_error("port " + std::to_string(port) + " of " + address + " is taken");
    return bound;
}

Address BoundAddress(int socket) {
    Address bound = {};
    socklen_t size = sizeof bound;
    getsockname(socket, &bound.any, &size);
    return bound;
}

// The port stands at the same place in both families.
std::uint16_t BoundPort(int socket) { return ntohs(BoundAddress(socket).ipv4.sin_port); }

}  // namespace

bool ReadExactly(int socket, void* bytes, std::size_t size) {
    return size == 0 || recv(socket, bytes, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

void WriteAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

StreamService::StreamService(const std::string& address, std::uint16_t port, Converse converse)
    : _listener(Bind(SOCK_STREAM, address, port)), _port(BoundPort(_listener)), _converse(std::move(converse)) {
    if (listen(_listener, 16) != 0) throw std::runtime_error("listen");
    _thread = std::thread([this] { TakeConnections(); });
}

StreamService::~StreamService() {
    {
        const std::lock_guard guard(_lock);
        _ending = true;
        for (const int one : _sockets) shutdown(one, SHUT_RDWR);
    }
    shutdown(_listener, SHUT_RDWR);
    _thread.join();
    for (auto& conversation : _conversations) conversation.join();
    for (const int one : _sockets) close(one);
    close(_listener);
}

void StreamService::TakeConnections() {
    while (true) {
        const int taken = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (taken < 0) return;
        const int on = 1;
        setsockopt(taken, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const std::lock_guard guard(_lock);
        _sockets.push_back(taken);
        if (_ending) return;
        _conversations.emplace_back([this, taken] {
            _converse(taken);
            shutdown(taken, SHUT_RDWR);
        });
    }
}

DatagramService::DatagramService(const std::string& address, std::uint16_t port, Answer answer)
    : _socket(Bind(SOCK_DGRAM, address, port)),
      _port(BoundPort(_socket)),
      _answer(std::move(answer)),
      _thread([this] { TakeDatagrams(); }) {}

DatagramService::~DatagramService() {
    _ending = true;
    const Address self = BoundAddress(_socket);
    sendto(_socket, "", 0, 0, &self.any, sizeof self);
    _thread.join();
    close(_socket);
}

void DatagramService::TakeDatagrams() {
    std::array<char, 4096> request = {};
    while (true) {
        Address peer = {};
        socklen_t size = sizeof peer;
        const ssize_t got = recvfrom(_socket, request.data(), request.size(), 0, &peer.any, &size);
        if (_ending || got < 0) return;
        const std::string answer = _answer({request.data(), static_cast<std::size_t>(got)});
        if (answer.empty()) continue;
        sendto(_socket, answer.data(), answer.size(), 0, &peer.any, size);
    }
}

}  // namespace nimbrel::ad::test
