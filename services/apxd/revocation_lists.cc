#include "services/apxd/revocation_lists.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
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

std::size_t BlocksOf(const std::string& text) {
    constexpr std::string_view kBegin = "-----BEGIN";
    std::size_t count = 0;
    for (std::size_t at = text.find(kBegin); at != std::string::npos; at = text.find(kBegin, at + 1)) ++count;
    return count;
}

int NoPassPhrase(char* /*room*/, int /*size*/, int /*isWriting*/, void* /*data*/) { return -1; }

// What `read` takes from the text, one after the other; unset if there is more in it. The reader passes over whatever does
// not begin a line as it should.
template <class Object>
std::optional<std::vector<Owned<Object>>> AllIn(const std::string& text,
                                                Object* (*read)(BIO*, Object**, pem_password_cb*, void*)) {
    const Owned<BIO> memory = Reading(text);
    std::vector<Owned<Object>> all;
    ERR_clear_error();
    while (Owned<Object> one{read(memory.get(), nullptr, NoPassPhrase, nullptr)}) all.push_back(std::move(one));
    const bool isOutOfMemory = ERR_GET_REASON(ERR_peek_last_error()) == ERR_R_MALLOC_FAILURE;
    ERR_clear_error();
    if (isOutOfMemory) throw std::bad_alloc();
    return all.size() == BlocksOf(text) ? std::optional(std::move(all)) : std::nullopt;
}

Certificates AuthoritiesIn(const std::string& text) {
    auto all = AllIn(text, PEM_read_bio_X509);
    if (!all) throw AuthoritiesError("holds something that cannot be read as a certificate, as 'client-crl' requires");
    return std::move(*all);
}

std::string TextIn(BIO* memory) {
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory, &text);
    return {text, static_cast<std::size_t>(size)};
}

// RFC 2253.
std::string TextOf(const X509_NAME* name) {
    const Owned<BIO> memory(BIO_new(BIO_s_mem()));
    if (!memory || X509_NAME_print_ex(memory.get(), name, 0, XN_FLAG_RFC2253) < 0) throw std::bad_alloc();
    return TextIn(memory.get());
}

[[noreturn]] void Fail(const X509_CRL* list, const std::string& fault) {
    throw RevocationListError("holds a list of '" + TextOf(X509_CRL_get_issuer(list)) + "' " + fault);
}

// Of a signature whose parameters name it.
int DigestIn(const X509_ALGOR* algorithm) {
    struct FreeParameters {
        void operator()(RSA_PSS_PARAMS* parameters) const { RSA_PSS_PARAMS_free(parameters); }
    };
    int type = V_ASN1_UNDEF;
    const void* value = nullptr;
    X509_ALGOR_get0(nullptr, &type, &value, algorithm);
    if (type != V_ASN1_SEQUENCE) return NID_undef;
    const auto* const sequence = static_cast<const ASN1_STRING*>(value);
    const unsigned char* bytes = ASN1_STRING_get0_data(sequence);
    const std::unique_ptr<RSA_PSS_PARAMS, FreeParameters> parameters(
        d2i_RSA_PSS_PARAMS(nullptr, &bytes, ASN1_STRING_length(sequence)));
    ERR_clear_error();
    return parameters && parameters->hashAlgorithm != nullptr ? OBJ_obj2nid(parameters->hashAlgorithm->algorithm)
                                                              : NID_undef;  // or SHA-1
}

// Whom a digest that is broken might let sign.
bool IsDigestGood(const X509_CRL* list) {
    int digest = NID_undef;
    int key = NID_undef;
    if (OBJ_find_sigid_algs(X509_CRL_get_signature_nid(list), &digest, &key) != 1) return false;
    if (key == NID_ED25519 || key == NID_ED448) return true;
    if (key == NID_rsassaPss) {
        const X509_ALGOR* algorithm = nullptr;
        X509_CRL_get0_signature(list, nullptr, &algorithm);
        digest = DigestIn(algorithm);
    }
    constexpr int kGood[] = {NID_sha224,   NID_sha256,   NID_sha384,   NID_sha512,
                             NID_sha3_224, NID_sha3_256, NID_sha3_384, NID_sha3_512};
    return std::find(std::begin(kGood), std::end(kGood), digest) != std::end(kGood);
}

bool IsNamedAs(const X509_NAME* name, const X509* authority) {
    return X509_NAME_cmp(name, X509_get_subject_name(authority)) == 0;
}

bool IsSignedBy(X509_CRL* list, X509* authority) {
    const bool isSigned =
        IsNamedAs(X509_CRL_get_issuer(list), authority) && X509_CRL_verify(list, X509_get0_pubkey(authority)) == 1;
    ERR_clear_error();
    return isSigned;
}

// Each authority by itself: one that was renewed with another key stands there twice.
void RequireSigned(X509_CRL* list, const Certificates& authorities) {
    bool isNamed = false;
    bool isSigned = false;
    bool maySign = false;
    for (const auto& authority : authorities) {
        isNamed = isNamed || IsNamedAs(X509_CRL_get_issuer(list), authority.get());
        if (!IsSignedBy(list, authority.get())) continue;
        isSigned = true;
        maySign = maySign || (X509_get_key_usage(authority.get()) & KU_CRL_SIGN) != 0;
    }
    // libcrypto may refuse to check some of them.
    if (isNamed && !IsDigestGood(list)) {
        Fail(list, "whose signature proves nothing: it needs a digest of SHA-2 or SHA-3");
    }
    if (!isSigned) Fail(list, "that no authority of 'client-ca' has signed");
    if (!maySign) Fail(list, "that may not sign lists: the keyUsage of its certificate lacks cRLSign");
}

[[noreturn]] void FailAsPart(const X509_CRL* list, X509_EXTENSION* extension) {
    char identifier[128] = {};
    OBJ_obj2txt(identifier, sizeof identifier, X509_EXTENSION_get_object(extension), 1);
    Fail(list,
         "with the extension " + std::string(identifier) + ", which may make it one of a part: a whole one is needed");
}

// A list with a critical extension that is not understood tells nothing (RFC 5280, section 5.2). Those that there are
// make it one of a part: of what has changed, of some kinds of certificates, of other authorities' certificates. The
// latter stands with the entries.
void RequireWhole(X509_CRL* list) {
    for (int index = 0; index < X509_CRL_get_ext_count(list); ++index) {
        X509_EXTENSION* const extension = X509_CRL_get_ext(list, index);
        const int kind = OBJ_obj2nid(X509_EXTENSION_get_object(extension));
        if (X509_EXTENSION_get_critical(extension) != 0 || kind == NID_delta_crl ||
            kind == NID_issuing_distribution_point) {
            FailAsPart(list, extension);
        }
    }
    const STACK_OF(X509_REVOKED)* const entries = X509_CRL_get_REVOKED(list);
    for (int index = 0; index < sk_X509_REVOKED_num(entries); ++index) {
        const X509_REVOKED* const entry = sk_X509_REVOKED_value(entries, index);
        int fault = X509_REVOKED_get_ext_by_critical(entry, 1, -1);
        if (fault < 0) fault = X509_REVOKED_get_ext_by_NID(entry, NID_certificate_issuer, -1);
        if (fault >= 0) FailAsPart(list, X509_REVOKED_get_ext(entry, fault));
    }
}

// The last moment for which the list is good.
std::time_t EndOf(const X509_CRL* list) {
    const ASN1_TIME* const next = X509_CRL_get0_nextUpdate(list);
    if (next == nullptr) return std::numeric_limits<std::time_t>::max();
    std::tm time = {};
    if (ASN1_TIME_to_tm(next, &time) != 1) Fail(list, "with a time that cannot be read");
    return timegm(&time);
}

// ISO 8601.
std::string TextOf(std::time_t time) {
    std::tm parts = {};
    gmtime_r(&time, &parts);
    char text[32] = {};
    static_cast<void>(std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts));
    return text;
}

bool HasSigned(const X509* signer, X509* certificate) {
    const bool has =
        IsNamedAs(X509_get_issuer_name(certificate), signer) && X509_verify(certificate, X509_get0_pubkey(signer)) == 1;
    ERR_clear_error();
    return has;
}

// Without those that are revoked, and those that only they vouch for: with nobody, or only each other, besides.
Certificates LeftOf(Certificates all, const std::function<bool(X509*)>& isRevoked) {
    enum class Standing { Open, Good, Gone };
    std::vector<Standing> standings(all.size(), Standing::Open);
    const auto isSignedByOne = [&](X509* certificate, Standing standing) {
        for (std::size_t index = 0; index < all.size(); ++index) {
            if (standings[index] == standing && HasSigned(all[index].get(), certificate)) return true;
        }
        return false;
    };
    // What is settled may settle others, before and behind it.
    const auto settle = [&](Standing standing, const std::function<bool(X509*)>& isSo) {
        for (bool goesOn = true; goesOn;) {
            goesOn = false;
            for (std::size_t index = 0; index < all.size(); ++index) {
                if (standings[index] != Standing::Open || !isSo(all[index].get())) continue;
                standings[index] = standing;
                goesOn = true;
            }
        }
    };
    settle(Standing::Gone, isRevoked);
    const auto isFirst = [&](X509* one) {
        return HasSigned(one, one) || !(isSignedByOne(one, Standing::Open) || isSignedByOne(one, Standing::Gone));
    };
    settle(Standing::Good, [&](X509* one) { return isSignedByOne(one, Standing::Good) || isFirst(one); });
    settle(Standing::Gone, [&](X509* one) { return isSignedByOne(one, Standing::Gone); });
    Certificates left;
    for (std::size_t index = 0; index < all.size(); ++index) {
        if (standings[index] != Standing::Gone) left.push_back(std::move(all[index]));
    }
    if (left.empty()) throw RevocationListError("holds every authority of 'client-ca'");
    return left;
}

std::string PemOf(X509* certificate) {
    const Owned<BIO> memory(BIO_new(BIO_s_mem()));
    if (!memory || PEM_write_bio_X509(memory.get(), certificate) != 1) throw std::bad_alloc();
    return TextIn(memory.get());
}

}  // namespace

RevocationLists RevocationLists::Read(const std::string& lists, const std::string& authorities, std::time_t now) {
    Certificates signers = AuthoritiesIn(authorities);
    auto all = AllIn(lists, PEM_read_bio_X509_CRL);
    if (!all) throw RevocationListError("holds something that cannot be read as a list of revoked certificates");
    if (all->empty()) throw RevocationListError("holds no list of revoked certificates in PEM");
    RevocationLists read;
    for (auto& list : *all) {
        RequireSigned(list.get(), signers);
        RequireWhole(list.get());
        read._lists.emplace_back(std::move(list));
    }
    const Certificates left = apxd::LeftOf(std::move(signers), [&](X509* authority) { return read.Hold(authority); });
    for (const auto& list : read._lists) {
        const auto isSigner = [&](const auto& one) { return IsSignedBy(list.get(), one.get()); };
        const bool counts = std::any_of(left.begin(), left.end(), isSigner);
        // Or the first look-up would, in some thread. The signature cannot be checked any more after that.
        X509_CRL_sort(list.get());
        if (!counts) continue;
        const std::time_t until = EndOf(list.get());
        if (now > until) Fail(list.get(), "that is out of date since " + TextOf(until) + ": the next one is needed");
        read._lastUntil = std::min(read._lastUntil, until);
    }
    return read;
}

std::string RevocationLists::LeftOf(const std::string& authorities) const {
    std::string text;
    const auto isRevoked = [this](X509* authority) { return Hold(authority); };
    for (const auto& one : apxd::LeftOf(AuthoritiesIn(authorities), isRevoked)) text += PemOf(one.get());
    return text;
}

// By the number, and by the issuer's name, however a list spells it.
bool RevocationLists::Hold(X509* certificate) const {
    return std::any_of(_lists.begin(), _lists.end(), [certificate](const auto& list) {
        X509_REVOKED* entry = nullptr;
        return X509_CRL_get0_by_cert(list.get(), &entry, certificate) != 0;
    });
}

const char* RevocationLists::FaultOf(const gnutls_datum_t* chain, unsigned count, std::time_t now) const {
    if (AreOutdated(now)) return "a list of revoked certificates is out of date";
    for (unsigned index = 0; index < count && !_lists.empty(); ++index) {
        const unsigned char* bytes = chain[index].data;
        const Owned<X509> certificate(d2i_X509(nullptr, &bytes, static_cast<long>(chain[index].size)));
        ERR_clear_error();
        if (!certificate) return "a certificate that the client has sent cannot be read";
        if (!Hold(certificate.get())) continue;
        return index == 0 ? "the client's certificate is revoked" : "an authority that the client has sent is revoked";
    }
    return nullptr;
}

}  // namespace nimbrel::apxd
