// Client certificates that their authorities have taken back (RFC 5280, section 5), as one or more lists in PEM.
//
//     const std::string authorities = ReadTextFile("/etc/ca.pem");
//     const auto lists = RevocationLists::Read(ReadTextFile("/etc/crl.pem"), authorities, std::time(nullptr));
//     Trust(lists.LeftOf(authorities));
//     if (const char* fault = lists.FaultOf(chain, count, std::time(nullptr))) ...
//
// Threads: any, once it is read.

#ifndef NIMBREL_APXD_REVOCATION_LISTS_H_
#define NIMBREL_APXD_REVOCATION_LISTS_H_

#include <gnutls/gnutls.h>
#include <openssl/types.h>

#include <ctime>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace nimbrel::apxd {

// What is wrong with the lists, in words for the administrator.
class RevocationListError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// What is wrong with the authorities, in the same way.
class AuthoritiesError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

class RevocationLists {
 public:
    // None: holds nothing and is never out of date.
    RevocationLists() = default;

    // `authorities` are certificates in PEM; each list has to be signed by one of them. Authorities without a list are
    // taken to have revoked nothing. Throws `RevocationListError`, also for a text without a list, for a list of a part (of
    // what has changed since another one, of some kinds of certificates, of other authorities'), and for one that is out of
    // date `now`, unless its authority is itself revoked; and `AuthoritiesError`. Nothing in the texts is passed over: what
    // looks like the beginning of a list or a certificate is one.
    static RevocationLists Read(const std::string& lists, const std::string& authorities, std::time_t now);

    // A newer one of one of them is to be had by now. A list that does not say until when it is good is never out of date.
    bool AreOutdated(std::time_t now) const { return now > _lastUntil; }
    // The authorities that no list holds, nor any that hangs on these alone, in PEM: those to trust. A client need not send
    // an authority that is trusted for itself, and then `FaultOf` does not see it. Throws `RevocationListError` if none is
    // left, and `AuthoritiesError`.
    std::string LeftOf(const std::string& authorities) const;
    // Why a client with this chain, as it has sent it (DER), is refused; null if it is not. The authorities on the way are
    // looked for, too.
    const char* FaultOf(const gnutls_datum_t* chain, unsigned count, std::time_t now) const;

 private:
    bool Hold(X509* certificate) const;

    std::vector<std::shared_ptr<X509_CRL>> _lists;
    std::time_t _lastUntil = std::numeric_limits<std::time_t>::max();
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_REVOCATION_LISTS_H_
