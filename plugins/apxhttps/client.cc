#include "client.h"

#include <curl/curl.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <syslog.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <memory>
#include <optional>

#include "answers.h"
#include "pluginkit/log_text.h"
#include "settings.h"
#include "trust.h"

namespace nimbrel::apxhttps {
namespace {

struct Free {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

int OnCertificate(X509_STORE_CTX* presented, void* trust) {
    try {
        return static_cast<Trust*>(trust)->Accepts(presented) ? 1 : 0;
    } catch (const std::exception&) {
        return 0;
    }
}

// Writing on a connection that is gone raises SIGPIPE, which would end a process that has made no provision. Held back in
// this thread, and one that was raised meanwhile taken away.
class WithoutBrokenPipes {
 public:
    WithoutBrokenPipes() {
        sigemptyset(&_brokenPipe);
        sigaddset(&_brokenPipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        _alreadyPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &_brokenPipe, &_before);
    }
    WithoutBrokenPipes(const WithoutBrokenPipes&) = delete;
    WithoutBrokenPipes& operator=(const WithoutBrokenPipes&) = delete;
    ~WithoutBrokenPipes() {
        const timespec now = {0, 0};
        if (!_alreadyPending) sigtimedwait(&_brokenPipe, nullptr, &now);
        pthread_sigmask(SIG_SETMASK, &_before, nullptr);
    }

 private:
    sigset_t _brokenPipe;
    sigset_t _before;
    bool _alreadyPending;
};

// The check takes the place of the library's own; it ends the handshake before the request is sent. What was received is
// overwritten where TLS had it.
CURLcode OnTls(CURL* /*handle*/, void* context, void* trust) {
    auto* const tls = static_cast<SSL_CTX*>(context);
    SSL_CTX_set_options(tls, SSL_OP_CLEANSE_PLAINTEXT);
    if (trust == nullptr) return CURLE_OK;
    SSL_CTX_set_verify(tls, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_cert_verify_callback(tls, OnCertificate, trust);
    return CURLE_OK;
}

// The connection stands, the request is still to be sent. An anonymous suite, or a key shared beforehand, has the handshake
// succeed without any certificate, where the host's OpenSSL configuration lets it.
int OnConnected(void* trust, char* /*remote*/, char* /*local*/, int /*remotePort*/, int /*localPort*/) {
    return static_cast<Trust*>(trust)->HasAccepted() ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

// The library's own sockets would be handed to every program that the agent starts meanwhile.
curl_socket_t OnSocket(void* /*context*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

// The room is there from the start: growing would leave copies of a secret in the heap, as would the library's own buffer.
std::size_t OnData(char* data, std::size_t /*one*/, std::size_t size, void* text) {
    auto& body = *static_cast<std::string*>(text);
    const bool fits = body.size() + size <= kLargestAnswer;
    if (fits) body.append(data, size);
    OPENSSL_cleanse(data, size);
    return fits ? size : 0;
}

class Conversation {
 public:
    Conversation(const Service& service, const std::string& path, Body& body);

    std::uint32_t Hold(const std::string& request);

 private:
    void SetUp(const std::string& request);
    std::uint32_t Judge(CURLcode result);
    std::uint32_t JudgeFailure(CURLcode result);
    std::uint32_t JudgeRefusal(long httpStatus);
    std::uint32_t Fail(std::uint32_t status, const std::string& reason) const;
    template <typename Value>
    void Set(CURLoption option, Value value);

    const Service& _service;
    const std::string _path;
    Body& _body;
    const Settings _settings = ReadSettings();
    Trust _trust;
    std::unique_ptr<CURL, Free> _handle{curl_easy_init()};
    std::unique_ptr<curl_slist, Free> _headers;
    char _error[CURL_ERROR_SIZE] = {};
};

Conversation::Conversation(const Service& service, const std::string& path, Body& body)
    : _service(service), _path(path), _body(body), _trust(service.thumbprint, service.certificates) {
    if (_handle == nullptr) throw std::bad_alloc();
    _body.text.clear();
    _body.text.reserve(kLargestAnswer);
}

template <typename Value>
void Conversation::Set(CURLoption option, Value value) {
    const CURLcode result = curl_easy_setopt(_handle.get(), option, value);
    if (result == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    if (result != CURLE_OK) throw std::runtime_error(curl_easy_strerror(result));
}

void Conversation::SetUp(const std::string& request) {
    const std::string url = "https://" + _service.address + ':' + std::to_string(_settings.port) + _path;
    Set(CURLOPT_URL, url.c_str());
    Set(CURLOPT_PROTOCOLS_STR, "https");
    Set(CURLOPT_PROXY, "");  // nor one that the environment names
    Set(CURLOPT_FOLLOWLOCATION, 0L);
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    Set(CURLOPT_SSL_VERIFYHOST, 0L);  // the thumbprint tells more than a name
    Set(CURLOPT_SSL_VERIFYPEER, 0L);  // OnTls puts the real check in its place
    Set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
    Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    Set(CURLOPT_FORBID_REUSE, 1L);
    Set(CURLOPT_CONNECTTIMEOUT, _settings.connectSeconds);
    Set(CURLOPT_TIMEOUT, _settings.totalSeconds);
    Set(CURLOPT_ERRORBUFFER, _error);
    Set(CURLOPT_OPENSOCKETFUNCTION, OnSocket);
    Set(CURLOPT_WRITEFUNCTION, OnData);
    Set(CURLOPT_WRITEDATA, &_body.text);
    Set(CURLOPT_SSL_CTX_FUNCTION, OnTls);
    Set(CURLOPT_SSL_CTX_DATA, _service.verify ? &_trust : nullptr);
    if (_service.verify) {
        Set(CURLOPT_PREREQFUNCTION, OnConnected);
        Set(CURLOPT_PREREQDATA, &_trust);
    }
    if (!_settings.clientCertificate.empty()) {
        Set(CURLOPT_SSLCERT, _settings.clientCertificate.c_str());
        Set(CURLOPT_SSLKEY, _settings.clientKey.c_str());
        // Tried in place of asking for one: an encrypted key must not stop the host's agent at a prompt.
        Set(CURLOPT_KEYPASSWD, "");
    }
    if (request.empty()) return;
    _headers.reset(curl_slist_append(nullptr, "Content-Type: application/json"));
    if (_headers == nullptr) throw std::bad_alloc();
    Set(CURLOPT_HTTPHEADER, _headers.get());
    Set(CURLOPT_POSTFIELDSIZE, static_cast<long>(request.size()));
    Set(CURLOPT_POSTFIELDS, request.c_str());
}

std::uint32_t Conversation::Fail(std::uint32_t status, const std::string& reason) const {
    syslog(LOG_ERR, "Authentication proxy %s: %s: %s", _service.address.c_str(), _path.c_str(),
           kit::LogText(reason).Text());
    return status;
}

std::uint32_t Conversation::Hold(const std::string& request) {
    if (_service.verify && _trust.IsEmpty()) return Fail(kUntrustedCertificate, _trust.Reason());
    if (!_service.verify) {
        syslog(LOG_WARNING, "Authentication proxy %s: its certificate is not verified, as the host's settings ask",
               _service.address.c_str());
    }
    SetUp(request);
    return Judge(curl_easy_perform(_handle.get()));
}

std::uint32_t Conversation::Judge(CURLcode result) {
    const bool unproven = result == CURLE_OK && !_trust.HasAccepted();
    if (_service.verify && (unproven || _trust.Reason() != nullptr)) {
        return Fail(kUntrustedCertificate, std::string("its certificate is not trusted: ") + _trust.Reason());
    }
    if (result != CURLE_OK) return JudgeFailure(result);
    long httpStatus = 0;
    curl_easy_getinfo(_handle.get(), CURLINFO_RESPONSE_CODE, &httpStatus);
    return httpStatus >= 200 && httpStatus < 300 ? kSuccess : JudgeRefusal(httpStatus);
}

std::uint32_t Conversation::JudgeFailure(CURLcode result) {
    const std::string reason = _error[0] != '\0' ? _error : curl_easy_strerror(result);
    long error = 0;
    curl_easy_getinfo(_handle.get(), CURLINFO_OS_ERRNO, &error);
    if (result == CURLE_OUT_OF_MEMORY) {
        // So it calls a head of more than 100 KiB, too.
        curl_off_t firstByte = 0;
        curl_easy_getinfo(_handle.get(), CURLINFO_STARTTRANSFER_TIME_T, &firstByte);
        return firstByte == 0 ? Fail(kNotEnoughMemory, reason) : Fail(kConnectionInvalid, "the answer is too long");
    }
    if (result == CURLE_SSL_CERTPROBLEM) {
        return Fail(kInvalidSettings, "the host's client-certificate or client-key cannot be used: " + reason +
                                          " (the key must not need a pass phrase)");
    }
    if (result == CURLE_OPERATION_TIMEDOUT) return Fail(kTimedOut, reason);
    if (result == CURLE_COULDNT_CONNECT && error == ETIMEDOUT) return Fail(kTimedOut, reason);
    if (result == CURLE_COULDNT_CONNECT && error == ECONNREFUSED) return Fail(kConnectionRefused, reason);
    if (result == CURLE_WRITE_ERROR) return Fail(kConnectionInvalid, "the answer is too long");
    return Fail(kConnectionInvalid, reason);
}

// The service's own words are for the log only.
std::uint32_t Conversation::JudgeRefusal(long httpStatus) {
    const auto refusal = httpStatus >= 400 ? ParseRefusal(_body.text) : std::nullopt;
    const std::string http = "HTTP status " + std::to_string(httpStatus);
    if (!refusal) return Fail(kConnectionInvalid, "the answer is not the service's: " + http);
    return Fail(refusal->status, "refused: " + std::to_string(refusal->status) + ' ' + refusal->message);
}

// Once in the life of the process; the module stays loaded.
bool IsSetUp() {
    static const bool done = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return done;
}

}  // namespace

Body::~Body() {
    text.resize(text.capacity());
    OPENSSL_cleanse(text.data(), text.size());
}

std::uint32_t Ask(const Service& service, const std::string& path, const std::string& request, Body& body) {
    if (!IsSetUp()) return kNotEnoughMemory;
    const WithoutBrokenPipes guard;
    return Conversation(service, path, body).Hold(request);
}

}  // namespace nimbrel::apxhttps
