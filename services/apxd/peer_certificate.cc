#include "services/apxd/peer_certificate.h"

#include <gnutls/x509.h>

#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace nimbrel::apxd {
namespace {

std::string Fingerprint(const gnutls_datum_t& certificate) {
    unsigned char digest[32] = {};
    std::size_t size = sizeof digest;
    std::string text;
    if (gnutls_fingerprint(GNUTLS_DIG_SHA256, &certificate, digest, &size) != GNUTLS_E_SUCCESS) return text;
    for (const unsigned char byte : digest) {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 0xFU];
    }
    return text;
}

struct FreeCertificate {
    void operator()(gnutls_x509_crt_t certificate) const { gnutls_x509_crt_deinit(certificate); }
};

// A name with a zero byte in it is none.
std::vector<std::string> NamesOf(const gnutls_datum_t& der) {
    gnutls_x509_crt_t made = nullptr;
    if (gnutls_x509_crt_init(&made) != GNUTLS_E_SUCCESS) throw std::bad_alloc();
    const std::unique_ptr<std::remove_pointer_t<gnutls_x509_crt_t>, FreeCertificate> certificate(made);
    if (gnutls_x509_crt_import(made, &der, GNUTLS_X509_FMT_DER) != GNUTLS_E_SUCCESS) return {};
    std::vector<std::string> names;
    const auto add = [&](const char* text, std::size_t size) {
        if (std::memchr(text, 0, size) == nullptr) names.emplace_back(text, size);
    };
    bool hasDnsName = false;
    for (unsigned index = 0;; ++index) {
        char text[256];
        std::size_t size = sizeof text;
        const int kind = gnutls_x509_crt_get_subject_alt_name(made, index, text, &size, nullptr);
        if (kind == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) break;
        if (kind < 0 && kind != GNUTLS_E_SHORT_MEMORY_BUFFER) return {};
        if (kind != GNUTLS_SAN_DNSNAME) continue;  // nor is one that is longer than a DNS name may be
        hasDnsName = true;
        add(text, size);
    }
    char text[256];
    std::size_t size = sizeof text;
    if (!hasDnsName &&
        gnutls_x509_crt_get_dn_by_oid(made, GNUTLS_OID_X520_COMMON_NAME, 0, 0, text, &size) == GNUTLS_E_SUCCESS) {
        add(text, size);
    }
    return names;
}

bool IsTrusted(gnutls_session_t session) {
    gnutls_typed_vdata_st purpose = {};
    purpose.type = GNUTLS_DT_KEY_PURPOSE_OID;
    purpose.data = reinterpret_cast<unsigned char*>(const_cast<char*>(GNUTLS_KP_TLS_WWW_CLIENT));
    unsigned status = 0;
    return gnutls_certificate_verify_peers(session, &purpose, 1, &status) >= 0 && status == 0;
}

}  // namespace

std::optional<PeerCertificate> ReadPeerCertificate(gnutls_session_t session, const RevocationLists& revoked) {
    unsigned count = 0;
    const gnutls_datum_t* const chain = gnutls_certificate_get_peers(session, &count);
    if (chain == nullptr || count == 0 || !IsTrusted(session)) return std::nullopt;
    PeerCertificate certificate{Fingerprint(chain[0]), NamesOf(chain[0]),
                                revoked.FaultOf(chain, count, std::time(nullptr))};
    return certificate.fingerprint.empty() ? std::nullopt : std::optional(std::move(certificate));
}

}  // namespace nimbrel::apxd
