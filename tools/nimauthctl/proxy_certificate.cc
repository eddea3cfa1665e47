#include "tools/nimauthctl/proxy_certificate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <new>
#include <system_error>

#include "authentication/exceptions.h"
#include "pluginkit/whole_file.h"
#include "tools/nimauthctl/apxhttps_settings.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"

namespace nimbrel::nimauthctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kDefaultPort = 8443;

struct Free {
    void operator()(BIO* memory) const { BIO_free(memory); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* tls) const { SSL_free(tls); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Free>;

std::string Contents(const Owned<BIO>& memory) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

std::string NameText(const X509_NAME* name) {
    const Owned<BIO> memory(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(memory.get(), name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
    return Contents(memory);
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm fields = {};
    std::array<char, 32> text{};
    if (ASN1_TIME_to_tm(time, &fields) != 1) return "unreadable";
    static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &fields));
    return text.data();
}

std::string Thumbprint(const X509* certificate) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    if (X509_digest(certificate, EVP_sha1(), digest.data(), &size) != 1)
        throw authentication::InvalidCertificateException();
    std::string text;
    for (unsigned index = 0; index < size; ++index) {
        if (index != 0) text += ':';
        text += "0123456789ABCDEF"[digest[index] >> 4U];
        text += "0123456789ABCDEF"[digest[index] & 0xFU];
    }
    return text;
}

ProxyCertificate Describe(const X509* certificate, std::string pem) {
    const ASN1_TIME* const from = X509_get0_notBefore(certificate);
    const ASN1_TIME* const until = X509_get0_notAfter(certificate);
    return {.subject = NameText(X509_get_subject_name(certificate)),
            .issuer = NameText(X509_get_issuer_name(certificate)),
            .validFrom = TimeText(from),
            .validUntil = TimeText(until),
            .thumbprint = Thumbprint(certificate),
            .isValidNow = X509_cmp_current_time(from) < 0 && X509_cmp_current_time(until) > 0,
            .pem = std::move(pem)};
}

// ---------------------------------------------------------------- fetching

[[noreturn]] void FailFetch(const std::string& address, const std::string& cause) {
    throw ToolError(ExitCode::Network, "no certificate could be fetched from " + address, cause,
                    "check the address, the proxy service and the firewalls in between");
}

int PluginPort() {
    const std::string port = ApxhttpsSetting(kit::ReadWholeFile(kApxhttpsSettings).value_or(""), "port");
    return port.empty() ? kDefaultPort : static_cast<int>(ParseInteger("port", port, 1, 65535));
}

class Fetch {
 public:
    Fetch(const std::string& address, int timeoutSeconds)
        : _address(address), _end(Clock::now() + std::chrono::seconds(timeoutSeconds)) {}
    Fetch(const Fetch&) = delete;
    Fetch& operator=(const Fetch&) = delete;
    ~Fetch() {
        if (_socket >= 0) close(_socket);
    }

    ProxyCertificate Run();

 private:
    void Connect();
    void Shake(SSL* tls);
    void WaitFor(short events) const;

    const std::string _address;
    const Clock::time_point _end;
    int _socket = -1;
};

void Fetch::WaitFor(short events) const {
    pollfd wait = {_socket, events, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(_end - Clock::now()).count();
    const int ready = left <= 0 ? 0 : poll(&wait, 1, static_cast<int>(left));
    if (ready == 0) FailFetch(_address, "it did not answer in time");
}

void Fetch::Connect() {
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(PluginPort()));
    if (inet_pton(AF_INET, _address.c_str(), &to.sin_addr) != 1) {
        throw UsageError("'" + _address + "' is no IPv4 address");
    }
    _socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    int error = connect(_socket, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        WaitFor(POLLOUT);
        socklen_t size = sizeof error;
        getsockopt(_socket, SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error != 0) FailFetch(_address, std::generic_category().message(error));
}

void Fetch::Shake(SSL* tls) {
    for (int result; (result = SSL_connect(tls)) != 1;) {
        const int error = SSL_get_error(tls, result);
        if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
            FailFetch(_address, "what answers there does not speak TLS");
        }
        WaitFor(error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT);
    }
}

ProxyCertificate Fetch::Run() {
    Connect();
    const Owned<SSL_CTX> context(SSL_CTX_new(TLS_client_method()));
    const Owned<SSL> tls(context ? SSL_new(context.get()) : nullptr);
    if (tls == nullptr) throw std::bad_alloc();
    SSL_set_min_proto_version(tls.get(), TLS1_2_VERSION);
    SSL_set_fd(tls.get(), _socket);
    Shake(tls.get());
    const Owned<X509> certificate(SSL_get1_peer_certificate(tls.get()));
    if (certificate == nullptr) FailFetch(_address, "it presented none");
    const Owned<BIO> memory(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(memory.get(), certificate.get());
    return Describe(certificate.get(), Contents(memory));
}

std::string HexDigits(const std::string& thumbprint) {
    std::string digits;
    for (const char c : thumbprint) {
        if (c != ':') digits += c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return digits;
}

}  // namespace

ProxyCertificate ReadProxyCertificate(const std::string& text) {
    const Owned<BIO> memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    // Tried in place of asking for one: an encrypted certificate must not stop a script at a prompt.
    char noPassPhrase[] = "";
    const Owned<X509> certificate(PEM_read_bio_X509(memory.get(), nullptr, nullptr, noPassPhrase));
    if (certificate == nullptr) throw authentication::InvalidCertificateException();
    return Describe(certificate.get(), text);
}

ProxyCertificate FetchProxyCertificate(const std::string& address, int timeoutSeconds) {
    return Fetch(address, timeoutSeconds).Run();
}

bool SameThumbprint(const std::string& left, const std::string& right) { return HexDigits(left) == HexDigits(right); }

}  // namespace nimbrel::nimauthctl
