#include "services/apxd/server.h"

#include <gnutls/gnutls.h>
#include <microhttpd.h>
#include <sys/socket.h>

#include <charconv>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "services/apxd/connections.h"
#include "services/apxd/peer_certificate.h"
#include "services/apxd/service_log.h"

namespace nimbrel::apxd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kPriorities[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:%SERVER_PRECEDENCE";
constexpr std::size_t kConnectionMemory = 16384;  // bounds request line and header fields
constexpr std::chrono::milliseconds kHearing(50);
// Connections that are over and not yet cleared away: the library's own limit is never the one that is met, as it tells
// nobody.
constexpr unsigned kSlack = 64;

int SocketOf(MHD_Connection* connection) {
    return MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

std::optional<Address> ClientOf(MHD_Connection* connection) {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    return info == nullptr || info->client_addr == nullptr ? std::nullopt : Address::From(*info->client_addr);
}

std::string HeaderOf(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

std::optional<std::uint64_t> ContentLengthOf(MHD_Connection* connection) {
    const std::string text = HeaderOf(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
    std::uint64_t length = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    return error == std::errc() && rest == text.data() + text.size() ? std::optional(length) : std::nullopt;
}

void ReadCertificate(MHD_Connection* connection, const RevocationLists& revoked, Request& request) {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    if (info == nullptr) return;
    auto certificate = ReadPeerCertificate(static_cast<gnutls_session_t>(info->tls_session), revoked);
    if (!certificate) return;
    request.certificate = std::move(certificate->fingerprint);
    request.certificateNames = std::move(certificate->names);
    request.certificateFault = certificate->fault;
}

// `revoked` is null where clients need no certificate.
Request HeadOf(MHD_Connection* connection, const char* method, const char* path, const RevocationLists* revoked) {
    Request request;
    request.method = method;
    request.path = path;
    request.contentType = HeaderOf(connection, MHD_HTTP_HEADER_CONTENT_TYPE);
    request.contentLength = ContentLengthOf(connection);
    request.client = ClientOf(connection);
    if (revoked != nullptr) ReadCertificate(connection, *revoked, request);
    return request;
}

// One request on its way through.
struct Exchange {
    Request request;
    std::optional<Answer> refused;
    bool answered = false;
    bool served = false;  // the client's address may ask, and the connection is not one too many
    Clock::time_point begin = Clock::now();
};

LogLine LineOf(const Exchange& exchange, const Answer& answer) {
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - exchange.begin);
    LogLine line("request");
    line.Add("client", TextOf(exchange.request.client))
        .AddIfAny("certificate", exchange.request.certificate)
        .Add("method", exchange.request.method)
        .Add("path", exchange.request.path)
        .AddIfAny("account", answer.account)
        .AddIfAny("unit", answer.organizationalUnit)
        .Add("http", answer.httpStatus)
        .Add("status", answer.status)
        .AddIfAny("way", answer.way)
        .AddIfAny("reason", answer.message)
        .Add("ms", static_cast<std::uint64_t>(took.count()));
    return line;
}

LogLine LineOfBrokenOff(const Exchange& exchange) {
    return LogLine("request")
        .Add("client", TextOf(exchange.request.client))
        .Add("method", exchange.request.method)
        .Add("path", exchange.request.path)
        .Add("reason", "broken off by the client");
}

void FreeBody(void* body) { delete static_cast<SecretText*>(body); }

MHD_Result Send(MHD_Connection* connection, Answer answer) {
    auto body = std::make_unique<SecretText>(std::move(answer.body));
    // The bytes are only read.
    auto* const bytes = const_cast<char*>(body->Text().data());
    const std::size_t size = body->Text().size();
    MHD_Response* const response =
        MHD_create_response_from_buffer_with_free_callback_cls(size, bytes, FreeBody, body.get());
    if (response == nullptr) return MHD_NO;
    static_cast<void>(body.release());
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    if (answer.httpStatus == 429) MHD_add_response_header(response, MHD_HTTP_HEADER_RETRY_AFTER, "60");
    const MHD_Result queued = MHD_queue_response(connection, answer.httpStatus, response);
    MHD_destroy_response(response);
    return queued;
}

}  // namespace

class Server::Impl {
 public:
    Impl(const Config& config, Handler& handler, const TlsFiles& files, std::shared_ptr<Listener> listener);
    ~Impl();

    void Retire();
    bool Drain();

 private:
    static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* data, std::size_t* size, void** state);
    static MHD_Result OnAccept(void* self, const sockaddr* address, socklen_t size);
    static void OnCompleted(void* self, MHD_Connection* connection, void** state, MHD_RequestTerminationCode code);
    static void OnConnection(void* self, MHD_Connection* connection, void** state, MHD_ConnectionNotificationCode code);
    __attribute__((format(printf, 2, 0))) static void OnMessage(void* self, const char* format, va_list arguments);

    MHD_Result Begin(MHD_Connection* connection, const char* method, const char* path, void** state);
    MHD_Result Continue(MHD_Connection* connection, Exchange& exchange, const char* data, std::size_t* size);
    MHD_Result Finish(MHD_Connection* connection, Exchange& exchange, Answer answer);
    Visitor VisitorAt(std::optional<Address> address) const;
    bool Accepts(const sockaddr& address);
    void Log(const Exchange& exchange, LogLine line);

    const Config& _config;
    Handler& _handler;
    const RevocationLists _revoked;
    const std::shared_ptr<Listener> _listener;
    Connections _connections;
    LogBudget _refused;       // connections
    LogBudget _notServed;     // requests of addresses that may not ask, and on connections that are one too many
    std::mutex _messageLock;  // guards the two below: connections may come before the start has ended
    std::string _startMessage;
    bool _started = false;
    MHD_Daemon* _daemon = nullptr;
};

Server::Impl::Impl(const Config& config, Handler& handler, const TlsFiles& files, std::shared_ptr<Listener> listener)
    : _config(config),
      _handler(handler),
      _revoked(files.revoked),
      _listener(std::move(listener)),
      _connections(std::chrono::seconds(config.requestSeconds), {config.connections, config.connectionsPerClient}) {
    const bool ipv6 = config.address.find(':') != std::string::npos;
    const unsigned flags = MHD_USE_TLS | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION |
                           MHD_USE_POLL | MHD_USE_ITC | MHD_USE_ERROR_LOG | (ipv6 ? MHD_USE_IPv6 : MHD_NO_FLAG);
    // The option that ends the list, where nobody is asked for a certificate.
    const auto trust = files.clientCa.empty() ? MHD_OPTION_END : MHD_OPTION_HTTPS_MEM_TRUST;
    constexpr auto kNotServed = static_cast<unsigned>(Connections::kOutsiders + Connections::kTurnedAway);
    const unsigned most = config.connections + kNotServed + kSlack;
    _daemon = MHD_start_daemon(flags, 0, OnAccept, this, OnRequest, this,              //
                               MHD_OPTION_EXTERNAL_LOGGER, OnMessage, this,            //
                               MHD_OPTION_LISTEN_SOCKET, _listener->Descriptor(),      //
                               MHD_OPTION_NOTIFY_CONNECTION, OnConnection, this,       //
                               MHD_OPTION_NOTIFY_COMPLETED, OnCompleted, this,         //
                               MHD_OPTION_CONNECTION_LIMIT, most,                      //
                               MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,  //
                               MHD_OPTION_HTTPS_PRIORITIES, kPriorities,               //
                               MHD_OPTION_HTTPS_MEM_CERT, files.certificate.c_str(),   //
                               MHD_OPTION_HTTPS_MEM_KEY, files.key.Text().c_str(),     //
                               trust, files.clientCa.c_str(), MHD_OPTION_END);
    const std::lock_guard<std::mutex> lock(_messageLock);
    if (_daemon == nullptr) throw std::runtime_error("the HTTPS server cannot be started: " + _startMessage);
    _started = true;
}

// Stopping the daemon would close a socket that it listens on.
Server::Impl::~Impl() {
    MHD_quiesce_daemon(_daemon);
    MHD_stop_daemon(_daemon);
}

// The accepting thread is told, but nothing tells when it has heard, and until then it may take one more connection.
void Server::Impl::Retire() {
    MHD_quiesce_daemon(_daemon);
    std::this_thread::sleep_for(kHearing);
}

bool Server::Impl::Drain() {
    if (_connections.WaitForNone(std::chrono::seconds(_config.stopSeconds))) return true;
    LogLine("cut").Add("reason", "requests under way have outlasted stop-seconds").Write();
    return false;
}

// What the HTTP library has to say matters at the start only; later it speaks of clients that break off.
void Server::Impl::OnMessage(void* self, const char* format, va_list arguments) {
    auto* const server = static_cast<Impl*>(self);
    const std::lock_guard<std::mutex> lock(server->_messageLock);
    if (server->_started) return;
    char text[512] = {};
    if (std::vsnprintf(text, sizeof text, format, arguments) < 0) return;
    try {
        server->_startMessage += text;
    } catch (const std::bad_alloc&) {
        // the start fails all the same, with what there is of the reason
    }
}

Visitor Server::Impl::VisitorAt(std::optional<Address> address) const {
    const bool allowed = _handler.IsAllowed(address);
    return {address, allowed};
}

bool Server::Impl::Accepts(const sockaddr& address) {
    const Visitor visitor = VisitorAt(Address::From(address));
    const char* const reason = _connections.Refusal(visitor);
    if (reason == nullptr) return true;
    LogLine line("refused");
    line.Add("client", TextOf(visitor.address)).Add("reason", reason);
    _refused.Write(line, Clock::now());
    return false;
}

MHD_Result Server::Impl::OnAccept(void* self, const sockaddr* address, socklen_t /*size*/) {
    try {
        return static_cast<Impl*>(self)->Accepts(*address) ? MHD_YES : MHD_NO;
    } catch (const std::exception&) {
        return MHD_NO;  // no memory
    }
}

void Server::Impl::OnConnection(void* self, MHD_Connection* connection, void** /*state*/,
                                MHD_ConnectionNotificationCode code) {
    auto* const server = static_cast<Impl*>(self);
    if (code != MHD_CONNECTION_NOTIFY_STARTED) {
        server->_connections.Close(SocketOf(connection));
        return;
    }
    try {
        server->_connections.Open(SocketOf(connection), server->VisitorAt(ClientOf(connection)));
    } catch (const std::bad_alloc&) {
        // without an entry nobody watches over it: it ends now
        shutdown(SocketOf(connection), SHUT_RDWR);
    }
}

MHD_Result Server::Impl::OnRequest(void* self, MHD_Connection* connection, const char* url, const char* method,
                                   const char* /*version*/, const char* data, std::size_t* size, void** state) {
    auto* const server = static_cast<Impl*>(self);
    try {
        if (*state == nullptr) return server->Begin(connection, method, url, state);
        return server->Continue(connection, *static_cast<Exchange*>(*state), data, size);
    } catch (const std::exception&) {
        return MHD_NO;  // no memory: the connection is closed
    }
}

// A small body is taken in even where the head decides: a client that is still sending would not see the answer.
MHD_Result Server::Impl::Begin(MHD_Connection* connection, const char* method, const char* path, void** state) {
    auto exchange = std::make_unique<Exchange>();
    exchange->request = HeadOf(connection, method, path, _config.clientCaFile.empty() ? nullptr : &_revoked);
    const char* const turnedAway = _connections.TurnedAway(SocketOf(connection));
    exchange->served = turnedAway == nullptr && _handler.IsAllowed(exchange->request.client);
    exchange->refused = turnedAway == nullptr ? _handler.Admit(exchange->request, Clock::now())
                                              : std::optional(Handler::TurnedAway(turnedAway));
    Exchange& kept = *exchange.release();
    *state = &kept;
    const bool chunked = !HeaderOf(connection, MHD_HTTP_HEADER_TRANSFER_ENCODING).empty();
    if (!chunked && kept.request.contentLength.value_or(0) <= kLargestBody) return MHD_YES;
    if (kept.refused) return Finish(connection, kept, std::move(*kept.refused));
    kept.refused = Handler::LengthRequired();
    return Finish(connection, kept, std::move(*kept.refused));
}

MHD_Result Server::Impl::Continue(MHD_Connection* connection, Exchange& exchange, const char* data, std::size_t* size) {
    if (*size > 0) {
        if (!exchange.refused && exchange.request.body.size() <= kLargestBody)
            exchange.request.body.append(data, *size);
        *size = 0;
        return MHD_YES;
    }
    if (exchange.refused) return Finish(connection, exchange, std::move(*exchange.refused));
    const int socket = SocketOf(connection);
    _connections.Suspend(socket);
    Answer answer = _handler.Handle(exchange.request);
    _connections.Resume(socket);
    return Finish(connection, exchange, std::move(answer));
}

MHD_Result Server::Impl::Finish(MHD_Connection* connection, Exchange& exchange, Answer answer) {
    exchange.answered = true;
    Log(exchange, LineOf(exchange, answer));
    return Send(connection, std::move(answer));
}

// Who is not served shall not fill the log either.
void Server::Impl::Log(const Exchange& exchange, LogLine line) {
    exchange.served ? line.Write() : _notServed.Write(line, Clock::now());
}

void Server::Impl::OnCompleted(void* self, MHD_Connection* /*connection*/, void** state,
                               MHD_RequestTerminationCode /*code*/) {
    const std::unique_ptr<Exchange> exchange(static_cast<Exchange*>(std::exchange(*state, nullptr)));
    if (exchange && !exchange->answered) static_cast<Impl*>(self)->Log(*exchange, LineOfBrokenOff(*exchange));
}

Server::Server(const Config& config, Handler& handler, const TlsFiles& files, std::shared_ptr<Listener> listener)
    : _impl(std::make_unique<Impl>(config, handler, files, std::move(listener))) {}

Server::~Server() = default;

void Server::Retire() { _impl->Retire(); }
bool Server::Drain() { return _impl->Drain(); }

}  // namespace nimbrel::apxd
