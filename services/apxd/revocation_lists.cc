#include "services/apxd/revocation_lists.h"

#include <gnutls/gnutls.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <vector>

#include "services/apxd/datum.h"

namespace nimbrel::apxd {
namespace {

constexpr std::size_t kLargestSerial = 128;  // RFC 5280 allows 20 bytes

std::string_view View(const gnutls_datum_t& datum) { return {reinterpret_cast<const char*>(datum.data), datum.size}; }

struct Free {
    void operator()(gnutls_x509_crt_t certificate) const { gnutls_x509_crt_deinit(certificate); }
    void operator()(gnutls_x509_crl_t list) const { gnutls_x509_crl_deinit(list); }
    void operator()(gnutls_x509_crl_iter_t iterator) const { gnutls_x509_crl_iter_deinit(iterator); }
    void operator()(unsigned char* bytes) const { gnutls_free(bytes); }
};
template <class Handle>
using Owned = std::unique_ptr<std::remove_pointer_t<Handle>, Free>;

// Takes over what a function of the library has allocated.
template <class Handle>
std::vector<Owned<Handle>> Taken(Handle* handles, unsigned count) {
    const std::unique_ptr<Handle, decltype(gnutls_free)> array(handles, gnutls_free);
    std::vector<Owned<Handle>> owned(count);
    for (unsigned index = 0; index < count; ++index) owned[index].reset(handles[index]);
    return owned;
}

void Require(int result) {
    if (result == GNUTLS_E_MEMORY_ERROR) throw std::bad_alloc();
    if (result < 0) throw RevocationListError(gnutls_strerror(result));
}

std::vector<Owned<gnutls_x509_crl_t>> ListsIn(const std::string& text) {
    const gnutls_datum_t pem = Datum(text);
    gnutls_x509_crl_t* lists = nullptr;
    unsigned count = 0;
    const int result = gnutls_x509_crl_list_import2(&lists, &count, &pem, GNUTLS_X509_FMT_PEM, 0);
    if (result == GNUTLS_E_NO_CERTIFICATE_FOUND || result == GNUTLS_E_BASE64_DECODING_ERROR) {
        throw RevocationListError("holds no list of revoked certificates");
    }
    Require(result);
    return Taken(lists, count);
}

std::vector<Owned<gnutls_x509_crt_t>> CertificatesIn(const std::string& text) {
    const gnutls_datum_t pem = Datum(text);
    gnutls_x509_crt_t* certificates = nullptr;
    unsigned count = 0;
    Require(gnutls_x509_crt_list_import2(&certificates, &count, &pem, GNUTLS_X509_FMT_PEM, 0));
    return Taken(certificates, count);
}

// Whenever it was made: time is looked at when a client shows its certificate.
bool IsSignedBy(gnutls_x509_crl_t list, gnutls_x509_crt_t authority) {
    unsigned status = 0;
    const int result = gnutls_x509_crl_verify(list, &authority, 1, GNUTLS_VERIFY_DISABLE_TIME_CHECKS, &status);
    // Versions of the library that check the times all the same add the general fault to these.
    constexpr unsigned kTimes = GNUTLS_CERT_REVOCATION_DATA_SUPERSEDED | GNUTLS_CERT_REVOCATION_DATA_ISSUED_IN_FUTURE;
    const unsigned faults = (status & kTimes) == 0 ? status : status & ~(kTimes | GNUTLS_CERT_INVALID);
    return result >= 0 && faults == 0;
}

// Each by itself: of several of one name, as an authority has that was renewed with another key, the library looks at the
// first.
bool IsSignedByOne(gnutls_x509_crl_t list, const std::vector<Owned<gnutls_x509_crt_t>>& authorities) {
    return std::any_of(authorities.begin(), authorities.end(),
                       [list](const auto& authority) { return IsSignedBy(list, authority.get()); });
}

// A list with a critical extension that is not understood tells nothing (RFC 5280, section 5.2). Those that there are
// make it one of a part: of what has changed, of some kinds of certificates, of other authorities' certificates.
void RequireWhole(gnutls_x509_crl_t list) {
    for (unsigned index = 0;; ++index) {
        char identifier[128];
        std::size_t size = sizeof identifier;
        unsigned isCritical = 0;
        const int result = gnutls_x509_crl_get_extension_info(list, index, identifier, &size, &isCritical);
        if (result == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) return;
        Require(result);
        if (isCritical != 0) {
            throw RevocationListError("holds a list of a part of the revoked certificates (critical extension " +
                                      std::string(identifier) + "): a whole one is needed");
        }
    }
}

std::string KeyOf(std::string_view issuer, std::string_view serial) {
    return std::to_string(issuer.size()).append(1, ' ').append(issuer).append(serial);
}

std::string IssuerOf(gnutls_x509_crl_t list) {
    gnutls_datum_t name = {};
    Require(gnutls_x509_crl_get_raw_issuer_dn(list, &name));
    const Owned<unsigned char*> owned(name.data);
    return std::string(View(name));
}

void TakeEntries(gnutls_x509_crl_t list, std::set<std::string>& revoked) {
    const std::string issuer = IssuerOf(list);
    gnutls_x509_crl_iter_t iterator = nullptr;
    Owned<gnutls_x509_crl_iter_t> owned;
    for (;;) {
        unsigned char serial[kLargestSerial];
        std::size_t size = sizeof serial;
        std::time_t since = 0;
        const int result = gnutls_x509_crl_iter_crt_serial(list, &iterator, serial, &size, &since);
        if (!owned) owned.reset(iterator);
        if (result == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) return;
        Require(result);
        revoked.insert(KeyOf(issuer, {reinterpret_cast<const char*>(serial), size}));
    }
}

}  // namespace

RevocationLists RevocationLists::Read(const std::string& lists, const std::string& authorities) {
    const auto signers = CertificatesIn(authorities);
    RevocationLists read;
    for (const auto& list : ListsIn(lists)) {
        if (!IsSignedByOne(list.get(), signers)) {
            throw RevocationListError("holds a list that no authority of 'client-ca' has signed");
        }
        RequireWhole(list.get());
        TakeEntries(list.get(), read._revoked);
        const std::time_t next = gnutls_x509_crl_get_next_update(list.get());
        if (next != -1) read._lastUntil = std::min(read._lastUntil, next);
    }
    return read;
}

std::string RevocationLists::LeftOf(const std::string& authorities) const {
    std::string left;
    for (const auto& authority : CertificatesIn(authorities)) {
        if (Hold(authority.get())) continue;
        gnutls_datum_t pem = {};
        Require(gnutls_x509_crt_export2(authority.get(), GNUTLS_X509_FMT_PEM, &pem));
        const Owned<unsigned char*> owned(pem.data);
        left += View(pem);
    }
    if (left.empty()) throw RevocationListError("holds every authority of 'client-ca'");
    return left;
}

// What cannot be looked for is not good either.
bool RevocationLists::Hold(const gnutls_datum_t& der) const {
    gnutls_x509_crt_t certificate = nullptr;
    Require(gnutls_x509_crt_init(&certificate));
    const Owned<gnutls_x509_crt_t> owned(certificate);
    return gnutls_x509_crt_import(certificate, &der, GNUTLS_X509_FMT_DER) < 0 || Hold(certificate);
}

bool RevocationLists::Hold(gnutls_x509_crt_t certificate) const {
    gnutls_datum_t issuer = {};
    unsigned char serial[kLargestSerial];
    std::size_t size = sizeof serial;
    if (gnutls_x509_crt_get_serial(certificate, serial, &size) < 0 ||
        gnutls_x509_crt_get_raw_issuer_dn(certificate, &issuer) < 0) {
        return true;
    }
    const Owned<unsigned char*> ownedName(issuer.data);
    return _revoked.contains(KeyOf(View(issuer), {reinterpret_cast<const char*>(serial), size}));
}

const char* RevocationLists::FaultOf(const gnutls_datum_t* chain, unsigned count, std::time_t now) const {
    if (AreOutdated(now)) return "the list of revoked certificates is out of date";
    const auto isHeld = [this](const gnutls_datum_t& der) { return Hold(der); };
    const bool isRevoked = !_revoked.empty() && std::any_of(chain, chain + count, isHeld);
    return isRevoked ? "the client's certificate is revoked" : nullptr;
}

}  // namespace nimbrel::apxd
