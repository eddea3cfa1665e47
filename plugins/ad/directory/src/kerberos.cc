#include "kerberos.h"

#include <fcntl.h>
#include <profile.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "pluginkit/descriptor.h"

namespace nimbrel::ad {
namespace {

// --- The private configuration ---

// Unset for everything that libkrb5 shall take its own default for.
const char* ProfileValue(const std::string& realm, std::string_view section, std::string_view key) {
    static constexpr std::pair<std::string_view, const char*> kValues[] = {
        {"dns_canonicalize_hostname", "false"},
        {"dns_lookup_kdc", "false"},
        {"dns_lookup_realm", "false"},
        {"kdc_timesync", "0"},  // otherwise a wrong clock is reported as a wrong password
        {"permitted_enctypes", "aes256-cts-hmac-sha1-96 aes128-cts-hmac-sha1-96"},
        {"rdns", "false"},
    };
    if (section != "libdefaults") {
        return nullptr;
    }
    if (key == "default_realm") {
        return realm.c_str();
    }
    for (const auto& [name, value] : kValues) {
        if (name == key) {
            return value;
        }
    }
    return nullptr;
}

long GetValues(void* realm, const char* const* names, char*** values) {
    const bool isRelation = names[0] && names[1] && !names[2];
    const char* value =
        isRelation ? ProfileValue(*static_cast<const std::string*>(realm), names[0], names[1]) : nullptr;
    if (!value) {
        return PROF_NO_RELATION;
    }
    auto** list = static_cast<char**>(std::calloc(2, sizeof(char*)));
    if (!list || !(list[0] = strdup(value))) {
        std::free(list);
        return ENOMEM;
    }
    *values = list;
    return 0;
}

void FreeValues(void*, char** values) {
    std::free(values[0]);
    std::free(values);
}

void FreeRealm(void* realm) { delete static_cast<std::string*>(realm); }

long CopyRealm(void* realm, void** copy) {
    *copy = std::make_unique<std::string>(*static_cast<const std::string*>(realm)).release();
    return 0;
}

// --- Guards for what libkrb5 hands out ---

template <class Handle, void (*Free)(krb5_context, Handle)>
class Guard {
 public:
    explicit Guard(krb5_context context) : _context(context) {}
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() {
        if (_handle) {
            Free(_context, _handle);
        }
    }

    Handle* Out() { return &_handle; }
    Handle Get() const { return _handle; }

 private:
    krb5_context _context;
    Handle _handle = nullptr;
};

void CloseKeytab(krb5_context context, krb5_keytab keytab) { krb5_kt_close(context, keytab); }

using PrincipalGuard = Guard<krb5_principal, krb5_free_principal>;
using OptionsGuard = Guard<krb5_get_init_creds_opt*, krb5_get_init_creds_opt_free>;
using LogOnGuard = Guard<krb5_init_creds_context, krb5_init_creds_free>;
using TicketGuard = Guard<krb5_tkt_creds_context, krb5_tkt_creds_free>;
using KeytabGuard = Guard<krb5_keytab, CloseKeytab>;

// What one step of a dialogue wants to be sent, and where.
struct Step {
    explicit Step(krb5_context context_) : context(context_) {}
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;
    ~Step() {
        krb5_free_data_contents(context, &request);
        krb5_free_data_contents(context, &realm);
    }

    krb5_context context;
    krb5_data request = {};
    krb5_data realm = {};
    unsigned flags = 0;
};

// `next(reply, step)` is called until it wants nothing more to be sent.
template <class Next>
void RunDialogue(krb5_context context, const KdcExchange& exchange, const std::string& action, const Next& next) {
    std::string reply;
    while (true) {
        Step step(context);
        krb5_data input = {};
        input.data = reply.data();
        input.length = static_cast<unsigned>(reply.size());
        CheckKerberos(context, next(&input, step), action);
        if (step.flags == 0) {
            return;
        }
        reply = exchange({step.realm.data, step.realm.length}, {step.request.data, step.request.length});
    }
}

}  // namespace

KerberosError::KerberosError(krb5_error_code code, const std::string& message)
    : AdError(StatusOfKerberosCode(code), message), _code(code) {}

std::uint32_t StatusOfKerberosCode(krb5_error_code code) {
    switch (code) {
        case KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN:
        case KRB5KDC_ERR_PREAUTH_FAILED:
        case KRB5KRB_AP_ERR_BAD_INTEGRITY:
        case KRB5_PREAUTH_FAILED:
        case KRB5KDC_ERR_WRONG_REALM:
        case KRB5_PARSE_MALFORMED:
            return kStatusLogonFailure;
        case KRB5KDC_ERR_CLIENT_REVOKED:
        case KRB5KDC_ERR_POLICY:
            return kStatusAccountDisabled;
        case KRB5KDC_ERR_ETYPE_NOSUPP:
            return kStatusAccountRestriction;
        case KRB5KDC_ERR_NAME_EXP:
            return kStatusAccountExpired;
        case KRB5KDC_ERR_KEY_EXP:
            return kStatusPasswordMustChange;
        case KRB5KRB_AP_ERR_SKEW:
        case KRB5_KDCREP_SKEW:
        case KRB5KRB_AP_ERR_TKT_NYV:
            return kStatusTimeSkew;
        case KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN:
        case KRB5_KDC_UNREACH:
        case KRB5_REALM_UNKNOWN:
            return kStatusNoSuchDomain;
        case ENOMEM:
            return kStatusNotEnoughMemory;
        default:
            return kStatusInternalError;
    }
}

void CheckKerberos(krb5_context context, krb5_error_code code, const std::string& action) {
    if (code == 0) {
        return;
    }
    const char* text = krb5_get_error_message(context, code);
    std::string message = "Unable to " + action + ": " + text;
    if (code == KRB5KDC_ERR_ETYPE_NOSUPP) {
        message += " (an account without AES keys gets them with its next password, if it is allowed to use AES)";
    }
    krb5_free_error_message(context, text);
    throw KerberosError(code, message);
}

KerberosContext MakeKerberosContext(const std::string& realm) {
    profile_vtable table = {};
    table.minor_ver = 1;
    table.get_values = GetValues;
    table.free_values = FreeValues;
    table.cleanup = FreeRealm;
    table.copy = CopyRealm;
    auto ownRealm = std::make_unique<std::string>(realm);
    profile_t profile = nullptr;
    if (profile_init_vtable(&table, ownRealm.get(), &profile) != 0) {
        throw AdError(kStatusInternalError, "Unable to make a Kerberos configuration");
    }
    static_cast<void>(ownRealm.release());  // the profile's now
    krb5_context context = nullptr;
    const krb5_error_code error = krb5_init_context_profile(profile, KRB5_INIT_CONTEXT_SECURE, &context);
    profile_release(profile);
    CheckKerberos(nullptr, error, "make a Kerberos context");
    return KerberosContext(context);
}

void RequireKey(const std::string& path, const std::string& principal) {
    const auto fail = [&](const std::string& reason) {
        throw AdError(kStatusBadConfiguration, "The keytab '" + path + "' cannot be used: " + reason);
    };
    // libkrb5 calls a folder a keytab that has ended, and some refusals by their number.
    const kit::Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const int error = errno;
    struct stat status = {};
    if (!file) {
        fail(std::generic_category().message(error));
    }
    if (fstat(file.Number(), &status) != 0 || !S_ISREG(status.st_mode)) {
        fail("it is no file");
    }
    const KerberosContext context = MakeKerberosContext("");
    KeytabGuard keys(context.get());
    PrincipalGuard name(context.get());
    CheckKerberos(context.get(), krb5_kt_resolve(context.get(), ("FILE:" + path).c_str(), keys.Out()), "open a keytab");
    CheckKerberos(context.get(), krb5_parse_name(context.get(), principal.c_str(), name.Out()), "parse a name");
    krb5_error_code code = 0;
    for (const krb5_enctype type : {ENCTYPE_AES256_CTS_HMAC_SHA1_96, ENCTYPE_AES128_CTS_HMAC_SHA1_96}) {
        krb5_keytab_entry entry = {};
        code = krb5_kt_get_entry(context.get(), keys.Get(), name.Get(), 0, type, &entry);
        if (code == 0) {
            krb5_free_keytab_entry_contents(context.get(), &entry);
            return;
        }
    }
    if (code == KRB5_KT_NOTFOUND) {
        fail("it holds no AES key of '" + principal + "'");
    }
    const char* text = krb5_get_error_message(context.get(), code);
    const std::string reason = text;
    krb5_free_error_message(context.get(), text);
    fail(reason);
}

Tickets::Tickets(std::string realm, KdcExchange exchange)
    : _realm(std::move(realm)), _exchange(std::move(exchange)), _context(MakeKerberosContext(_realm)) {
    CheckKerberos(Context(), krb5_cc_new_unique(Context(), "MEMORY", nullptr, &_cache), "make a ticket cache");
}

Tickets::~Tickets() {
    krb5_free_cred_contents(Context(), &_ticket);
    krb5_cc_destroy(Context(), _cache);
}

template <class Prepare>
void Tickets::LogOn(const Principal& principal, bool hasKey, const Prepare& prepare) {
    const std::string action = "log on as '" + principal.name + "'";
    PrincipalGuard client(Context());
    const int flags = principal.isEnterprise ? KRB5_PRINCIPAL_PARSE_ENTERPRISE : 0;
    CheckKerberos(Context(), krb5_parse_name_flags(Context(), principal.name.c_str(), flags, client.Out()), action);
    OptionsGuard options(Context());
    CheckKerberos(Context(), krb5_get_init_creds_opt_alloc(Context(), options.Out()), action);
    krb5_get_init_creds_opt_set_canonicalize(options.Get(), principal.isEnterprise ? 1 : 0);
    // With a keytab the key needs no salt of the realm's, so the proof can go out with the first request.
    krb5_preauthtype timestamp = KRB5_PADATA_ENC_TIMESTAMP;
    if (hasKey) {
        krb5_get_init_creds_opt_set_preauth_list(options.Get(), &timestamp, 1);
    }
    LogOnGuard request(Context());
    CheckKerberos(Context(),
                  krb5_init_creds_init(Context(), client.Get(), nullptr, nullptr, 0, options.Get(), request.Out()),
                  action);
    CheckKerberos(Context(), prepare(request.Get()), action);
    RunDialogue(Context(), _exchange, action, [&](krb5_data* reply, Step& step) {
        return krb5_init_creds_step(Context(), request.Get(), reply, &step.request, &step.realm, &step.flags);
    });
    Store(request.Get());
}

void Tickets::Store(krb5_init_creds_context request) {
    krb5_creds ticket = {};
    CheckKerberos(Context(), krb5_init_creds_get_creds(Context(), request, &ticket), "read a ticket");
    krb5_error_code error = krb5_cc_initialize(Context(), _cache, ticket.client);
    if (error == 0) {
        error = krb5_cc_store_cred(Context(), _cache, &ticket);
    }
    krb5_free_cred_contents(Context(), &ticket);
    CheckKerberos(Context(), error, "keep a ticket");
}

void Tickets::LogOnWithPassword(const Principal& principal, const char* password) {
    LogOn(principal, false,
          [&](krb5_init_creds_context request) { return krb5_init_creds_set_password(Context(), request, password); });
}

void Tickets::LogOnWithKeytab(const Principal& principal, const std::string& keytab) {
    KeytabGuard keys(Context());
    CheckKerberos(Context(), krb5_kt_resolve(Context(), keytab.c_str(), keys.Out()), "open '" + keytab + "'");
    LogOn(principal, true,
          [&](krb5_init_creds_context request) { return krb5_init_creds_set_keytab(Context(), request, keys.Get()); });
}

krb5_creds* Tickets::TicketFor(const std::string& service) {
    const std::string action = "get a ticket for '" + service + "'";
    PrincipalGuard server(Context());
    PrincipalGuard client(Context());
    CheckKerberos(Context(), krb5_parse_name(Context(), service.c_str(), server.Out()), action);
    CheckKerberos(Context(), krb5_cc_get_principal(Context(), _cache, client.Out()), action);
    krb5_creds wanted = {};
    wanted.client = client.Get();
    wanted.server = server.Get();
    TicketGuard request(Context());
    CheckKerberos(Context(), krb5_tkt_creds_init(Context(), _cache, &wanted, 0, request.Out()), action);
    std::string asked;
    try {
        RunDialogue(Context(), _exchange, action, [&](krb5_data* reply, Step& step) {
            const krb5_error_code error =
                krb5_tkt_creds_step(Context(), request.Get(), reply, &step.request, &step.realm, &step.flags);
            if (error == 0 && step.realm.length != 0) {
                asked.assign(step.realm.data, step.realm.length);
            }
            return error;
        });
    } catch (const KerberosError& error) {
        if (error.Code() != KRB5KDC_ERR_ETYPE_NOSUPP) {
            throw;
        }
        if (asked != service.substr(service.rfind('@') + 1)) {
            throw AdError(kStatusAccountRestriction,
                          "Unable to " + action + ": the realm '" + asked + "' has no AES key for the trust");
        }
        // The key that is missing is the service's, and another controller may have one.
        throw AdError(kStatusNoSuchDomain, "Unable to " + action + ": it has no key that this host may use");
    }
    krb5_free_cred_contents(Context(), &_ticket);
    _ticket = {};
    CheckKerberos(Context(), krb5_tkt_creds_get_creds(Context(), request.Get(), &_ticket), action);
    return &_ticket;
}

}  // namespace nimbrel::ad
