// The controller's side of a connection with Kerberos log-in and sealed messages, made by the system's GSSAPI library,
// which is another implementation than the provider's own.
//
// Threads: one at a time. Errors: `std::runtime_error` for what the library refuses.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_ACCEPTOR_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_ACCEPTOR_H_

#include <gssapi/gssapi.h>

#include <string>
#include <string_view>

namespace nimbrel::ad::test {

class Acceptor {
 public:
    // `keytab` is a name of libkrb5's.
    explicit Acceptor(const std::string& keytab);
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;
    ~Acceptor();

    std::string Accept(std::string_view token);
    std::string Wrap(std::string_view text, bool sealed);
    std::string Unwrap(std::string_view token);

 private:
    gss_cred_id_t _credential = GSS_C_NO_CREDENTIAL;
    gss_ctx_id_t _context = GSS_C_NO_CONTEXT;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_ACCEPTOR_H_
