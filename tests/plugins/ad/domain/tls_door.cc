#include "plugins/ad/domain/tls_door.h"

#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <array>
#include <csignal>
#include <utility>

#include "plugins/ad/domain/ber.h"

namespace nimbrel::ad::test {
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

Owned<SSL_CTX> MakeContext(const testing::Certificate& certificate) {
    Owned<SSL_CTX> context(SSL_CTX_new(TLS_server_method()));
    const Owned<X509> x509(PEM_read_bio_X509(Memory(certificate.pem).get(), nullptr, nullptr, nullptr));
    const Owned<EVP_PKEY> key(PEM_read_bio_PrivateKey(Memory(certificate.key).get(), nullptr, nullptr, nullptr));
    SSL_CTX_use_certificate(context.get(), x509.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    return context;
}

// OpenSSL writes to connections that the other side has closed.
void BlockBrokenPipes() {
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
}

std::string ReadMessage(SSL* tls) {
    std::string message;
    std::array<char, 4096> bytes = {};
    while (ElementSize(message) == 0 || message.size() < ElementSize(message)) {
        const int got = SSL_read(tls, bytes.data(), static_cast<int>(bytes.size()));
        if (got <= 0) return "";
        message.append(bytes.data(), static_cast<std::size_t>(got));
    }
    return message;
}

}  // namespace

TlsDoor::TlsDoor(testing::Certificate certificate, Result answer)
    : _certificate(std::move(certificate)), _answer(std::move(answer)) {
    _service = std::make_unique<StreamService>("127.0.0.1", 0, [this](int socket) { Converse(socket); });
}

std::string TlsDoor::LastName() {
    const std::lock_guard guard(_lock);
    return _lastName;
}

void TlsDoor::Converse(int socket) {
    BlockBrokenPipes();
    const Owned<SSL_CTX> context = MakeContext(_certificate);
    const Owned<SSL> tls(SSL_new(context.get()));
    SSL_set_fd(tls.get(), socket);
    if (SSL_accept(tls.get()) != 1) return;
    const std::string message = ReadMessage(tls.get());
    if (message.empty()) return;
    std::string_view rest = message;
    rest = TakeElement(rest).content;
    const std::int64_t id = TakeElement(rest).Number();
    const Element operation = TakeElement(rest);
    if (operation.tag != 0x60) return;  // a farewell instead of a log-in
    rest = operation.content;
    TakeElement(rest);  // the version
    {
        const std::lock_guard guard(_lock);
        _lastName = TakeElement(rest).Text();
    }
    const std::string answer = MakeElement(
        0x30, MakeNumber(0x02, id) + MakeElement(0x61, MakeNumber(0x0a, _answer.code) + MakeElement(0x04, "") +
                                                           MakeElement(0x04, _answer.diagnostic)));
    SSL_write(tls.get(), answer.data(), static_cast<int>(answer.size()));
    ReadMessage(tls.get());  // until the other side is done
}

}  // namespace nimbrel::ad::test
