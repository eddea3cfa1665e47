#include "tls_server.h"

#include <netinet/in.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <stdexcept>
#include <utility>

namespace nimbrel::testing {
namespace {

struct Free {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* tls) const { SSL_free(tls); }
    void operator()(BIO* memory) const { BIO_free(memory); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Free>;

Owned<BIO> Memory(const std::string& text) {
    return Owned<BIO>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

Owned<SSL_CTX> MakeContext(const Certificate& certificate) {
    Owned<SSL_CTX> context(SSL_CTX_new(TLS_server_method()));
    if (certificate.pem.empty()) {
        SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION);
        SSL_CTX_set_cipher_list(context.get(), "aNULL:@SECLEVEL=0");
        return context;
    }
    const Owned<X509> x509(PEM_read_bio_X509(Memory(certificate.pem).get(), nullptr, nullptr, nullptr));
    const Owned<EVP_PKEY> key(PEM_read_bio_PrivateKey(Memory(certificate.key).get(), nullptr, nullptr, nullptr));
    SSL_CTX_use_certificate(context.get(), x509.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    return context;
}

bool IsWhole(const std::string& request) { return request.find("\r\n\r\n") != std::string::npos; }

}  // namespace

const Certificate TlsServer::kAnonymous;

TlsServer::TlsServer(std::uint16_t port, const Certificate* certificate, std::string answer)
    : _certificate(certificate), _answer(std::move(answer)), _listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    setsockopt(_listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (bind(_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(_listener, 8) != 0) {
        close(_listener);
        throw std::runtime_error("bind");
    }
    _thread = std::thread([this] { Serve(); });
}

TlsServer::~TlsServer() {
    Request();
    close(_listener);
}

std::string TlsServer::Request() {
    // Wakes a server that nobody has asked.
    shutdown(_listener, SHUT_RDWR);
    if (_thread.joinable()) _thread.join();
    return _request;
}

void TlsServer::Serve() {
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    const int connection = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;
    const timeval patience = {5, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    _certificate != nullptr ? ServeTls(connection) : ServePlain(connection);
    close(connection);
}

void TlsServer::ServeTls(int connection) {
    const Owned<SSL_CTX> context = MakeContext(*_certificate);
    const Owned<SSL> tls(SSL_new(context.get()));
    SSL_set_fd(tls.get(), connection);
    if (SSL_accept(tls.get()) != 1) return;
    char buffer[4096];
    while (!IsWhole(_request)) {
        const int count = SSL_read(tls.get(), buffer, sizeof buffer);
        if (count <= 0) return;
        _request.append(buffer, static_cast<std::size_t>(count));
    }
    SSL_write(tls.get(), _answer.data(), static_cast<int>(_answer.size()));
}

void TlsServer::ServePlain(int connection) {
    char buffer[4096];
    const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
    if (count > 0) _request.assign(buffer, static_cast<std::size_t>(count));
    static_cast<void>(!send(connection, _answer.data(), _answer.size(), MSG_NOSIGNAL));
}

}  // namespace nimbrel::testing
