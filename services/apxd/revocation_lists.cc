#include "services/apxd/revocation_lists.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

// GnuTLS takes minutes for a list of some megabytes whose entries have reasons; libcrypto a part of a second.

namespace nimbrel::apxd {
namespace {

struct Free {
    void operator()(BIO* memory) const { BIO_free(memory); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_CRL* list) const { X509_CRL_free(list); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Free>;
using Certificates = std::vector<Owned<X509>>;

Owned<BIO> Reading(const std::string& text) {
    Owned<BIO> memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (!memory) throw std::bad_alloc();
    return memory;
}

// What `read` takes from the text, one after the other. Null ends it: there is no more, or what comes is damaged.
template <class Object>
std::vector<Owned<Object>> AllIn(const std::string& text, Object* (*read)(BIO*, Object**, pem_password_cb*, void*)) {
    const Owned<BIO> memory = Reading(text);
    std::vector<Owned<Object>> all;
    ERR_clear_error();
    while (Owned<Object> one{read(memory.get(), nullptr, nullptr, nullptr)}) all.push_back(std::move(one));
    const unsigned long error = ERR_peek_last_error();
    ERR_clear_error();
    if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) throw std::bad_alloc();
    if (ERR_GET_LIB(error) != ERR_LIB_PEM || ERR_GET_REASON(error) != PEM_R_NO_START_LINE) {
        throw RevocationListError("holds something that cannot be read");
    }
    return all;
}

bool MaySignLists(X509* authority) { return (X509_get_key_usage(authority) & KU_CRL_SIGN) != 0; }

// Whom a digest that is broken might let sign.
bool IsDigestGood(const X509_CRL* list) {
    int digest = NID_undef;
    if (OBJ_find_sigid_algs(X509_CRL_get_signature_nid(list), &digest, nullptr) != 1) return false;
    return digest != NID_md2 && digest != NID_md4 && digest != NID_md5 && digest != NID_sha1;
}

// Each by itself: an authority that was renewed with another key stands there twice.
bool IsSignedByOne(X509_CRL* list, const Certificates& authorities) {
    const bool isSigned = std::any_of(authorities.begin(), authorities.end(), [list](const auto& authority) {
        return X509_NAME_cmp(X509_CRL_get_issuer(list), X509_get_subject_name(authority.get())) == 0 &&
               MaySignLists(authority.get()) && X509_CRL_verify(list, X509_get0_pubkey(authority.get())) == 1;
    });
    ERR_clear_error();
    return isSigned && IsDigestGood(list);
}

// A list with a critical extension that is not understood tells nothing (RFC 5280, section 5.2). Those that there are
// make it one of a part: of what has changed, of some kinds of certificates, of other authorities' certificates.
void RequireWhole(const X509_CRL* list) {
    for (int index = 0; index < X509_CRL_get_ext_count(list); ++index) {
        X509_EXTENSION* const extension = X509_CRL_get_ext(list, index);
        if (X509_EXTENSION_get_critical(extension) == 0) continue;
        char identifier[128] = {};
        OBJ_obj2txt(identifier, sizeof identifier, X509_EXTENSION_get_object(extension), 1);
        throw RevocationListError("holds a list of a part of the revoked certificates (critical extension " +
                                  std::string(identifier) + "): a whole one is needed");
    }
}

// The last moment for which the list is good.
std::time_t EndOf(const X509_CRL* list) {
    const ASN1_TIME* const next = X509_CRL_get0_nextUpdate(list);
    if (next == nullptr) return std::numeric_limits<std::time_t>::max();
    std::tm time = {};
    if (ASN1_TIME_to_tm(next, &time) != 1) throw RevocationListError("holds a list with a time that cannot be read");
    return timegm(&time);
}

// Whether one of them has signed the certificate; one that has signed itself counts as its own signer.
bool HasSigner(X509* certificate, const Certificates& others) {
    const bool has = std::any_of(others.begin(), others.end(), [certificate](const auto& other) {
        return X509_NAME_cmp(X509_get_issuer_name(certificate), X509_get_subject_name(other.get())) == 0 &&
               X509_verify(certificate, X509_get0_pubkey(other.get())) == 1;
    });
    ERR_clear_error();
    return has;
}

std::string PemOf(X509* certificate) {
    const Owned<BIO> memory(BIO_new(BIO_s_mem()));
    if (!memory || PEM_write_bio_X509(memory.get(), certificate) != 1) throw std::bad_alloc();
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

RevocationLists RevocationLists::Read(const std::string& lists, const std::string& authorities) {
    const auto signers = AllIn(authorities, PEM_read_bio_X509);
    RevocationLists read;
    for (auto& list : AllIn(lists, PEM_read_bio_X509_CRL)) {
        if (!IsSignedByOne(list.get(), signers)) {
            throw RevocationListError("holds a list that no authority of 'client-ca' has signed");
        }
        RequireWhole(list.get());
        read._lastUntil = std::min(read._lastUntil, EndOf(list.get()));
        read._lists.emplace_back(std::move(list));
    }
    if (read._lists.empty()) throw RevocationListError("holds no list of revoked certificates");
    return read;
}

std::string RevocationLists::LeftOf(const std::string& authorities) const {
    Certificates left;
    Certificates gone;
    for (auto& authority : AllIn(authorities, PEM_read_bio_X509)) {
        (Hold(authority.get()) ? gone : left).push_back(std::move(authority));
    }
    for (auto next = left.begin(); next != left.end();) {
        next = std::find_if(left.begin(), left.end(), [&](const auto& authority) {
            return HasSigner(authority.get(), gone) && !HasSigner(authority.get(), left);
        });
        if (next == left.end()) break;
        gone.push_back(std::move(*next));
        left.erase(next);
        next = left.begin();
    }
    std::string text;
    for (const auto& authority : left) text += PemOf(authority.get());
    if (text.empty()) throw RevocationListError("holds every authority of 'client-ca'");
    return text;
}

// By the number, and by the issuer's name, however a list spells it.
bool RevocationLists::Hold(X509* certificate) const {
    return std::any_of(_lists.begin(), _lists.end(), [certificate](const auto& list) {
        X509_REVOKED* entry = nullptr;
        return X509_CRL_get0_by_cert(list.get(), &entry, certificate) != 0;
    });
}

// What cannot be looked for is not good either.
bool RevocationLists::Hold(const gnutls_datum_t& der) const {
    const unsigned char* bytes = der.data;
    const Owned<X509> certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size)));
    ERR_clear_error();
    return !certificate || Hold(certificate.get());
}

const char* RevocationLists::FaultOf(const gnutls_datum_t* chain, unsigned count, std::time_t now) const {
    if (AreOutdated(now)) return "the list of revoked certificates is out of date";
    const auto isHeld = [this](const gnutls_datum_t& der) { return Hold(der); };
    const bool isRevoked = !_lists.empty() && std::any_of(chain, chain + count, isHeld);
    return isRevoked ? "the client's certificate is revoked" : nullptr;
}

}  // namespace nimbrel::apxd
