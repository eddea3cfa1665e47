// Kerberos tickets with a private configuration and our own transport.
//
// libkrb5 builds requests and reads replies here; it opens no socket, reads no /etc/krb5.conf and looks at no
// environment variable. The requests are carried to the key distribution centre by a function that the owner supplies,
// which is where time-outs are kept.
//
// One object belongs to one thread at a time; any number of objects may exist.

#ifndef NIMBREL_AD_KERBEROS_H_
#define NIMBREL_AD_KERBEROS_H_

#include <krb5/krb5.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "addirectory/ad_error.h"

namespace nimbrel::ad {

// A refusal by Kerberos; the status is the Windows code for it.
class KerberosError : public AdError {
 public:
    KerberosError(krb5_error_code code, const std::string& message);

    krb5_error_code Code() const noexcept { return _code; }

 private:
    krb5_error_code _code;
};

// 1326 for an unknown client or wrong key, 1327 no AES key, 1331 revoked, 1907 key expired, 1398 clock skew, ... 1359 for what has no
// code of its own.
std::uint32_t StatusOfKerberosCode(krb5_error_code code);

struct FreeContext {
    void operator()(krb5_context context) const { krb5_free_context(context); }
};
// A context that knows `realm` as its default realm, AES as its only encryption, and nothing of this machine.
using KerberosContext = std::unique_ptr<std::remove_pointer_t<krb5_context>, FreeContext>;
KerberosContext MakeKerberosContext(const std::string& realm);

// Throws `KerberosError` with the library's text unless `code` is 0.
void CheckKerberos(krb5_context context, krb5_error_code code, const std::string& action);

struct Principal {
    std::string name;           // "administrator@CORP.TEST"
    bool isEnterprise = false;  // the whole name, "@" included, is looked up by the realm: a user principal name
};

// Throws 1610, with the path and the reason, unless the file is a keytab with an AES key of "apxd@CORP.TEST". Asks nobody.
void RequireKey(const std::string& path, const std::string& principal);

// Sends one request to a realm and returns the reply. Throws `AdError`.
using KdcExchange = std::function<std::string(const std::string& realm, std::string_view request)>;

class Tickets {
 public:
    Tickets(std::string realm, KdcExchange exchange);
    Tickets(const Tickets&) = delete;
    Tickets& operator=(const Tickets&) = delete;
    ~Tickets();

    // Gets the ticket on which the others stand. Throws `KerberosError`, and what the exchange throws.
    void LogOnWithPassword(const Principal& principal, const char* password);
    // `keytab` is a name as libkrb5 has them: "FILE:/etc/krb5.keytab".
    void LogOnWithKeytab(const Principal& principal, const std::string& keytab);

    // A ticket for "ldap/dc1.corp.test@CORP.TEST", in this realm or across a trust; valid until the next call of this, or
    // the end of the object. Throws 1355 for a service without an AES key.
    krb5_creds* TicketFor(const std::string& service);

    krb5_context Context() const { return _context.get(); }

 private:
    template <class Prepare>
    void LogOn(const Principal& principal, bool hasKey, const Prepare& prepare);
    void Store(krb5_init_creds_context request);

    std::string _realm;
    KdcExchange _exchange;
    KerberosContext _context;
    krb5_ccache _cache = nullptr;
    krb5_creds _ticket = {};
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_KERBEROS_H_
