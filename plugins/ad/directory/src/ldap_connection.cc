#include "ldap_connection.h"

#define LDAP_DEPRECATED 0
#include <ldap.h>
#include <openldap.h>
#include <poll.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <optional>

#include "certificate.h"
#include "ldap_transport.h"
#include "pluginkit/secret.h"
#include "sealed_channel.h"

namespace nimbrel::ad {
namespace {

constexpr char kMechanism[] = "GSSAPI";
constexpr char kLogIn[] = "log in to the controller";
constexpr unsigned char kSealingLayer = 0x04;
constexpr std::size_t kOurMaximumMessage = SealedChannel::kMaximumMessage;
constexpr char kTreeDeleteControl[] = "1.2.840.113556.1.4.805";
// A controller's own words are as long as it likes.
constexpr std::size_t kMaximumReason = 256;
// All messages of one answer together, as libldap keeps them until the last one is there: of a stranger, who tells who he
// is in some hundred bytes, and of a controller that has proved itself. A message takes some hundred bytes of memory
// however small it is.
constexpr ber_len_t kMaximumOfStrangers = 64U << 10;
constexpr ber_len_t kMaximumAnswer = 4U << 20;
constexpr std::size_t kMaximumMessages = 10'000;

struct FreeMessage {
    void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
};
using Message = std::unique_ptr<LDAPMessage, FreeMessage>;

struct FreeMemory {
    void operator()(char* memory) const { ldap_memfree(memory); }
};
using Memory = std::unique_ptr<char, FreeMemory>;

struct FreeValues {
    void operator()(berval** values) const { ldap_value_free_len(values); }
};

struct FreeElement {
    void operator()(BerElement* element) const { ber_free(element, 0); }
};

// The texts of a request in the form that libldap takes. It reads them only.
berval Value(std::string_view text) {
    berval value = {};
    value.bv_val = const_cast<char*>(text.data());
    value.bv_len = text.size();
    return value;
}

class Modifications {
 public:
    void Add(int operation, const LdapAttribute& attribute) {
        auto& one = _storage.emplace_back(std::make_unique<One>());
        for (const auto& value : attribute.values) {
            one->values.push_back(Value(value));
        }
        for (auto& value : one->values) {
            one->pointers.push_back(&value);
        }
        one->pointers.push_back(nullptr);
        one->modification.mod_op = operation | LDAP_MOD_BVALUES;
        one->modification.mod_type = const_cast<char*>(attribute.name.c_str());
        one->modification.mod_bvalues = one->pointers.data();
    }

    LDAPMod** Get() {
        _pointers.clear();
        for (auto& one : _storage) {
            _pointers.push_back(&one->modification);
        }
        _pointers.push_back(nullptr);
        return _pointers.data();
    }

 private:
    struct One {
        LDAPMod modification = {};
        std::vector<berval> values;
        std::vector<berval*> pointers;
    };

    std::vector<std::unique_ptr<One>> _storage;
    std::vector<LDAPMod*> _pointers;
};

int Operation(LdapChangeKind kind) {
    switch (kind) {
        case LdapChangeKind::Add:
            return LDAP_MOD_ADD;
        case LdapChangeKind::Delete:
            return LDAP_MOD_DELETE;
        default:
            return LDAP_MOD_REPLACE;
    }
}

int Scope(LdapScope scope) {
    switch (scope) {
        case LdapScope::Base:
            return LDAP_SCOPE_BASE;
        case LdapScope::OneLevel:
            return LDAP_SCOPE_ONELEVEL;
        default:
            return LDAP_SCOPE_SUBTREE;
    }
}

// libldap has looked who signed the certificate, and whether it might be the host's; its wildcards and common names are
// not enough here.
bool IsPeer(LDAP* handle, const std::string& host) {
    berval certificate = {};
    ldap_get_option(handle, LDAP_OPT_X_TLS_PEERCERT, &certificate);
    const Memory guard(certificate.bv_val);
    return IsCertificateOf({certificate.bv_val, certificate.bv_len}, host);
}

LdapEntry ReadEntry(LDAP* handle, LDAPMessage* message) {
    LdapEntry entry;
    if (const Memory name{ldap_get_dn(handle, message)}) {
        entry.distinguishedName = name.get();
    }
    BerElement* position = nullptr;
    Memory attribute{ldap_first_attribute(handle, message, &position)};
    const std::unique_ptr<BerElement, FreeElement> guard(position);
    for (; attribute; attribute.reset(ldap_next_attribute(handle, message, position))) {
        const std::unique_ptr<berval*, FreeValues> values(ldap_get_values_len(handle, message, attribute.get()));
        std::string name = attribute.get();
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        for (berval** value = values.get(); value && *value; ++value) {
            entry.attributes[name].emplace_back((*value)->bv_val, (*value)->bv_len);
        }
    }
    return entry;
}

}  // namespace

// --- LdapError, LdapEntry ---

std::uint32_t StatusOfLdapCode(int code, std::string_view diagnostic) {
    std::uint32_t windows = 0;
    const auto [end, error] = std::from_chars(
        diagnostic.data(), diagnostic.data() + std::min<std::size_t>(diagnostic.size(), 8), windows, 16);
    const bool hasWindows = error == std::errc() && end == diagnostic.data() + 8;
    if (hasWindows && (windows == kStatusQuotaExceeded || windows == kStatusPasswordRestriction)) {
        return windows;
    }
    switch (code) {
        case LDAP_NO_SUCH_OBJECT:
            return kStatusFileNotFound;
        case LDAP_INSUFFICIENT_ACCESS:
            return kStatusAccessDenied;
        case LDAP_INVALID_CREDENTIALS:
            return kStatusLogonFailure;
        case LDAP_ALREADY_EXISTS:
            return kStatusAccountExists;
        case LDAP_INVALID_DN_SYNTAX:
        case LDAP_NAMING_VIOLATION:
            return kStatusInvalidUnitName;
        case LDAP_NO_MEMORY:
            return kStatusNotEnoughMemory;
        case LDAP_SERVER_DOWN:
        case LDAP_TIMEOUT:
        case LDAP_CONNECT_ERROR:
        case LDAP_DECODING_ERROR:
        case LDAP_BUSY:
        case LDAP_UNAVAILABLE:
        case LDAP_REFERRAL:  // a read-only controller's answer to a change: another one takes it
            return kStatusNoSuchDomain;
        default:
            return kStatusInternalError;
    }
}

LdapError::LdapError(int code, const std::string& action, const std::string& diagnostic)
    : AdError(StatusOfLdapCode(code, diagnostic),
              "Unable to " + action + ": " + ldap_err2string(code) +
                  (diagnostic.empty() ? "" : " (" + diagnostic.substr(0, kMaximumReason) + ")")),
      _code(code),
      _diagnostic(diagnostic) {}

bool LdapError::IsNoAnswer() const noexcept { return _code == LDAP_SERVER_DOWN || _code == LDAP_TIMEOUT; }

std::string LdapEntry::Text(const std::string& name) const {
    const auto found = attributes.find(name);
    return found == attributes.end() || found->second.empty() ? "" : found->second.front();
}

std::int64_t LdapEntry::Number(const std::string& name) const {
    const std::string text = Text(name);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : 0;
}

std::vector<std::string> LdapEntry::Values(const std::string& name) const {
    const auto found = attributes.find(name);
    return found == attributes.end() ? std::vector<std::string>() : found->second;
}

// --- LdapConnection ---

class LdapConnection::Impl {
 public:
    Impl(kit::Descriptor socket, const std::string& host, const Deadline& deadline)
        : _host(host), _transport(std::move(socket), deadline) {
        const std::string url = "ldap://" + (host.empty() ? "controller" : host);
        LDAP* handle = nullptr;
        if (ldap_init_fd(_transport.Socket(), LDAP_PROTO_EXT, url.c_str(), &handle) != LDAP_SUCCESS) {
            throw AdError(kStatusInternalError, "The LDAP library takes no connection");
        }
        _handle.reset(handle);
        SetOptions();
        SetMaximumAnswer(kMaximumOfStrangers);
        _transport.Attach(Buffer());
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    LDAP* Handle() const { return _handle.get(); }
    const std::string& Host() const { return _host; }
    void SetStepLimit(std::chrono::milliseconds limit) { _stepLimit = limit; }
    void SetMaximumAnswer(ber_len_t bytes) {
        _maximumAnswer = bytes;
        ber_sockbuf_ctrl(Buffer(), LBER_SB_OPT_SET_MAX_INCOMING, &bytes);
    }
    LdapTransport& Transport() { return _transport; }

    // Throws for a code that tells of a failure.
    void Check(int code, const std::string& action, const std::string& diagnostic = "") const {
        if (code != LDAP_SUCCESS) {
            throw LdapError(code, action, diagnostic.empty() ? _transport.Fault() : diagnostic);
        }
    }

    // The complete answer to a request; waits outside the gate.
    Message Wait(int request, const std::string& action) {
        const Deadline deadline = _transport.CurrentDeadline().OrAfter(_stepLimit);
        const std::size_t before = _transport.Received();
        const std::size_t messagesBefore = _transport.ReceivedMessages();
        while (true) {
            timeval now = {};
            LDAPMessage* message = nullptr;
            const int kind = ldap_result(Handle(), request, LDAP_MSG_ALL, &now, &message);
            if (kind > 0) {
                return Message(message);
            }
            if (kind < 0) {
                Check(LDAP_SERVER_DOWN, action);
            }
            // Looked at first: a controller that never stops talking is always ready to be read.
            if (deadline.HasPassed()) {
                Check(LDAP_TIMEOUT, action);
            }
            if (_transport.Received() - before > _maximumAnswer ||
                _transport.ReceivedMessages() - messagesBefore > kMaximumMessages) {
                Check(LDAP_DECODING_ERROR, action, "the answer is too long");
            }
            if (!_transport.HasPlain() && !WaitFor(_transport.Socket(), POLLIN, deadline)) {
                Check(LDAP_TIMEOUT, action);
            }
        }
    }

    // Throws unless the answer says success or `alsoGood`.
    void CheckAnswer(LDAPMessage* message, const std::string& action, int alsoGood = LDAP_SUCCESS) const {
        int code = LDAP_OTHER;
        char* text = nullptr;
        const int parsed = ldap_parse_result(Handle(), message, &code, nullptr, &text, nullptr, nullptr, 0);
        const Memory diagnostic(text);
        Check(parsed, action);
        Check(code == alsoGood ? LDAP_SUCCESS : code, action, text ? text : "");
    }

    // One step of the log-in: our token, then the controller's.
    std::string ExchangeToken(std::string_view token, int expected) {
        berval ours = Value(token);
        int request = 0;
        Check(ldap_sasl_bind(Handle(), nullptr, kMechanism, &ours, nullptr, nullptr, &request), kLogIn);
        const Message answer = Wait(request, kLogIn);
        berval* theirs = nullptr;
        ldap_parse_sasl_bind_result(Handle(), answer.get(), &theirs, 0);
        std::string reply = theirs ? std::string(theirs->bv_val, theirs->bv_len) : "";
        ber_bvfree(theirs);
        CheckAnswer(answer.get(), kLogIn, expected);
        return reply;
    }

 private:
    Sockbuf* Buffer() const {
        Sockbuf* buffer = nullptr;
        ldap_get_option(Handle(), LDAP_OPT_SOCKBUF, &buffer);
        return buffer;
    }

    // The machine's ldap.conf and the environment have set defaults that must not count here.
    void SetOptions() const {
        const int version = LDAP_VERSION3;
        const int never = LDAP_DEREF_NEVER;
        const int none = 0;
        ldap_set_option(Handle(), LDAP_OPT_PROTOCOL_VERSION, &version);
        ldap_set_option(Handle(), LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
        ldap_set_option(Handle(), LDAP_OPT_DEREF, &never);
        ldap_set_option(Handle(), LDAP_OPT_SIZELIMIT, &none);
        ldap_set_option(Handle(), LDAP_OPT_TIMELIMIT, &none);
    }

    // The peer notices by the end of the connection; a farewell might have to wait.
    struct Destroy {
        void operator()(LDAP* handle) const { ldap_destroy(handle); }
    };

    const std::string _host;
    LdapTransport _transport;  // outlives the handle, which reads and writes through it
    std::unique_ptr<LDAP, Destroy> _handle;
    std::chrono::milliseconds _stepLimit = std::chrono::hours(1);
    std::size_t _maximumAnswer = 0;
};

LdapConnection::LdapConnection(const Endpoint& endpoint, const std::string& host, const Deadline& deadline)
    : _impl(std::make_unique<Impl>(ConnectTcp(endpoint, deadline), host, deadline)) {}

LdapConnection::~LdapConnection() = default;

void LdapConnection::SetDeadline(const Deadline& deadline) { _impl->Transport().SetDeadline(deadline); }

void LdapConnection::SetStepLimit(std::chrono::milliseconds limit) { _impl->SetStepLimit(limit); }

// SASL "GSSAPI" (RFC 4752): two Kerberos tokens, then the choice of the layer, then sealed messages only.
void LdapConnection::BindSealed(krb5_context context, krb5_creds* ticket) {
    auto channel = std::make_unique<SealedChannel>(context, ticket);
    channel->Accept(_impl->ExchangeToken(channel->Request(), LDAP_SASL_BIND_IN_PROGRESS));
    const kit::Secret offer = channel->Open(_impl->ExchangeToken("", LDAP_SASL_BIND_IN_PROGRESS), false);
    const std::string_view layers = offer.View();
    if (layers.size() != 4 || (static_cast<unsigned char>(layers[0]) & kSealingLayer) == 0) {
        throw AdError(kStatusNoSuchDomain, "The controller offers no sealed connection");
    }
    std::size_t maximum = 0;
    for (const char byte : layers.substr(1)) {
        maximum = maximum << 8 | static_cast<unsigned char>(byte);
    }
    const std::string choice = {static_cast<char>(kSealingLayer), 0, static_cast<char>(kOurMaximumMessage >> 8),
                                static_cast<char>(kOurMaximumMessage & 0xff)};
    _impl->ExchangeToken(channel->Sign(choice), LDAP_SUCCESS);
    _impl->Transport().Seal(std::move(channel), maximum);
    _impl->SetMaximumAnswer(kMaximumAnswer);
}

void LdapConnection::StartTls(const std::string& authorityFile) {
    LDAP* handle = _impl->Handle();
    const int demand = LDAP_OPT_X_TLS_DEMAND;
    const int client = 0;
    const auto left = _impl->Transport().CurrentDeadline().Remaining();
    timeval limit = {};
    limit.tv_sec = left.count() / 1000;
    limit.tv_usec = (left.count() % 1000) * 1000;
    ldap_set_option(handle, LDAP_OPT_NETWORK_TIMEOUT, &limit);
    _impl->Check(ldap_set_option(handle, LDAP_OPT_X_TLS_REQUIRE_CERT, &demand), "demand a certificate");
    _impl->Check(ldap_set_option(handle, LDAP_OPT_X_TLS_CACERTFILE, authorityFile.c_str()),
                 "use '" + authorityFile + "'");
    _impl->Check(ldap_set_option(handle, LDAP_OPT_X_TLS_NEWCTX, &client), "use '" + authorityFile + "'");
    _impl->Check(ldap_install_tls(handle), "start TLS");
    if (!IsPeer(handle, _impl->Host())) {
        _impl->Check(LDAP_CONNECT_ERROR, "start TLS", "the certificate does not name '" + _impl->Host() + "'");
    }
}

void LdapConnection::BindSimple(const std::string& name, const char* password) {
    berval secret = Value(password);
    int request = 0;
    _impl->Transport().SetWiping(true);
    const int code =
        ldap_sasl_bind(_impl->Handle(), name.c_str(), LDAP_SASL_SIMPLE, &secret, nullptr, nullptr, &request);
    _impl->Transport().SetWiping(false);
    _impl->Check(code, kLogIn);
    _impl->CheckAnswer(_impl->Wait(request, kLogIn).get(), kLogIn);
}

std::vector<LdapEntry> LdapConnection::Search(const LdapSearch& search) { return Finish(Start(search)); }

int LdapConnection::Start(const LdapSearch& search) {
    std::vector<char*> names;
    for (const auto& name : search.attributes) {
        names.push_back(const_cast<char*>(name.c_str()));
    }
    names.push_back(nullptr);
    int request = 0;
    _impl->Check(ldap_search_ext(_impl->Handle(), search.base.c_str(), Scope(search.scope), search.filter.c_str(),
                                 names.data(), 0, nullptr, nullptr, nullptr, 0, &request),
                 "ask the controller");
    return request;
}

std::vector<LdapEntry> LdapConnection::Finish(int question) {
    static constexpr char kAction[] = "read the controller's answer";
    LDAP* handle = _impl->Handle();
    const Message answer = _impl->Wait(question, kAction);
    std::vector<LdapEntry> entries;
    for (LDAPMessage* one = ldap_first_message(handle, answer.get()); one; one = ldap_next_message(handle, one)) {
        if (ldap_msgtype(one) == LDAP_RES_SEARCH_ENTRY) {
            entries.push_back(ReadEntry(handle, one));
        } else if (ldap_msgtype(one) == LDAP_RES_SEARCH_RESULT) {
            _impl->CheckAnswer(one, kAction);
        }
    }
    return entries;
}

void LdapConnection::Add(const std::string& distinguishedName, const std::vector<LdapAttribute>& attributes) {
    const std::string action = "create '" + distinguishedName + "'";
    Modifications modifications;
    for (const auto& attribute : attributes) {
        modifications.Add(LDAP_MOD_ADD, attribute);
    }
    int request = 0;
    _impl->Transport().SetWiping(true);
    const int code =
        ldap_add_ext(_impl->Handle(), distinguishedName.c_str(), modifications.Get(), nullptr, nullptr, &request);
    _impl->Transport().SetWiping(false);
    _impl->Check(code, action);
    _impl->CheckAnswer(_impl->Wait(request, action).get(), action);
}

void LdapConnection::Modify(const std::string& distinguishedName, const std::vector<LdapChange>& changes) {
    const std::string action = "change '" + distinguishedName + "'";
    Modifications modifications;
    for (const auto& change : changes) {
        modifications.Add(Operation(change.kind), change.attribute);
    }
    int request = 0;
    _impl->Transport().SetWiping(true);
    const int code =
        ldap_modify_ext(_impl->Handle(), distinguishedName.c_str(), modifications.Get(), nullptr, nullptr, &request);
    _impl->Transport().SetWiping(false);
    _impl->Check(code, action);
    _impl->CheckAnswer(_impl->Wait(request, action).get(), action);
}

void LdapConnection::Delete(const std::string& distinguishedName, bool withChildren) {
    const std::string action = "delete '" + distinguishedName + "'";
    LDAPControl tree = {};
    tree.ldctl_oid = const_cast<char*>(kTreeDeleteControl);
    tree.ldctl_iscritical = 1;
    LDAPControl* controls[] = {withChildren ? &tree : nullptr, nullptr};
    int request = 0;
    _impl->Check(ldap_delete_ext(_impl->Handle(), distinguishedName.c_str(), controls, nullptr, &request), action);
    _impl->CheckAnswer(_impl->Wait(request, action).get(), action);
}

}  // namespace nimbrel::ad
