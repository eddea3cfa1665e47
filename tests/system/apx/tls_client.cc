#include "tls_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <stdexcept>

namespace nimbrel::testing {
namespace {

constexpr std::uint16_t kPort = 8443;

struct Free {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* tls) const { SSL_free(tls); }
};

int ConnectTo(const std::string& address) {
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(kPort);
    sockaddr_in6 ipv6 = {};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(kPort);
    const bool isIpv4 = inet_pton(AF_INET, address.c_str(), &ipv4.sin_addr) == 1;
    if (!isIpv4 && inet_pton(AF_INET6, address.c_str(), &ipv6.sin6_addr) != 1) throw std::runtime_error(address);
    const int connection = socket(isIpv4 ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* const to = isIpv4 ? reinterpret_cast<const sockaddr*>(&ipv4) : reinterpret_cast<const sockaddr*>(&ipv6);
    if (connect(connection, to, isIpv4 ? sizeof ipv4 : sizeof ipv6) != 0) {
        close(connection);
        throw std::runtime_error("connect to " + address);
    }
    const timeval patience = {60, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return connection;
}

}  // namespace

class TlsClient::Impl {
 public:
    Impl(const std::string& address, int mostVersion) : context(SSL_CTX_new(TLS_client_method())) {
        std::signal(SIGPIPE, SIG_IGN);
        SSL_CTX_set_cipher_list(context.get(), "ALL:@SECLEVEL=0");  // earlier versions, too
        SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
        SSL_CTX_set_max_proto_version(context.get(), mostVersion);
        tls.reset(SSL_new(context.get()));
        connection = ConnectTo(address);
        SSL_set_fd(tls.get(), connection);
        connected = SSL_connect(tls.get()) == 1;
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() { close(connection); }

    std::unique_ptr<SSL_CTX, Free> context;
    std::unique_ptr<SSL, Free> tls;
    int connection = -1;
    bool connected = false;
};

TlsClient::TlsClient(const std::string& address, int mostVersion)
    : _impl(std::make_unique<Impl>(address, mostVersion)) {}

TlsClient::~TlsClient() = default;

bool TlsClient::IsConnected() const { return _impl->connected; }

bool TlsClient::Send(const std::string& text) {
    return SSL_write(_impl->tls.get(), text.data(), static_cast<int>(text.size())) > 0;
}

bool TlsClient::WaitForAnswer(std::chrono::milliseconds time) const {
    pollfd waiting = {_impl->connection, POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(time.count())) == 1;
}

std::string TlsClient::Answer() {
    std::string answer;
    char buffer[4096];
    for (int count = 0; (count = SSL_read(_impl->tls.get(), buffer, sizeof buffer)) > 0;) {
        answer.append(buffer, static_cast<std::size_t>(count));
    }
    return answer;
}

}  // namespace nimbrel::testing
