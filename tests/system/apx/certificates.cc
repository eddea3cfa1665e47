#include "certificates.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace nimbrel::testing {
namespace {

struct Free {
    void operator()(EVP_MD_CTX* signing) const { EVP_MD_CTX_free(signing); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_CRL* list) const { X509_CRL_free(list); }
    void operator()(X509_REVOKED* entry) const { X509_REVOKED_free(entry); }
    void operator()(X509_NAME* name) const { X509_NAME_free(name); }
    void operator()(ASN1_STRING* value) const { ASN1_STRING_free(value); }  // times and numbers, too
    void operator()(BIO* memory) const { BIO_free(memory); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Free>;

void Require(bool done) {
    if (!done) throw std::runtime_error("OpenSSL");
}

std::string TextOf(BIO* memory) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory, &data);
    return {data, static_cast<std::size_t>(size)};
}

Owned<BIO> Memory(const std::string& text) {
    return Owned<BIO>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

Owned<X509> Read(const Certificate& certificate) {
    Owned<X509> x509(PEM_read_bio_X509(Memory(certificate.pem).get(), nullptr, nullptr, nullptr));
    Require(x509 != nullptr);
    return x509;
}

std::string Thumbprint(const X509* certificate) {
    unsigned char digest[EVP_MAX_MD_SIZE] = {};
    unsigned size = 0;
    Require(X509_digest(certificate, EVP_sha1(), digest, &size) == 1);
    std::string text;
    for (unsigned index = 0; index < size; ++index) {
        char byte[4] = {};
        std::snprintf(byte, sizeof byte, "%02X%s", digest[index], index + 1 < size ? ":" : "");
        text += byte;
    }
    return text;
}

std::string TextOf(EVP_PKEY* key) {
    const Owned<BIO> text(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_PrivateKey(text.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
    return TextOf(text.get());
}

Owned<EVP_PKEY> ReadKey(const std::string& pem) {
    Owned<EVP_PKEY> key(PEM_read_bio_PrivateKey(Memory(pem).get(), nullptr, nullptr, nullptr));
    Require(key != nullptr);
    return key;
}

Owned<X509_EXTENSION> MakeExtension(const std::string& name, const std::string& value) {
    Owned<X509_EXTENSION> extension(X509V3_EXT_conf(nullptr, nullptr, name.c_str(), value.c_str()));
    Require(extension != nullptr);
    return extension;
}

void SetName(X509_NAME* name, const std::string& commonName) {
    const auto* const text = reinterpret_cast<const unsigned char*>(commonName.c_str());
    Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1);
}

}  // namespace

Certificate MakeCertificate(const std::string& commonName, const Certificate* issuer, long notBefore, long notAfter,
                            const Extensions& extensions, const std::string& keyText) {
    const Owned<EVP_PKEY> key(keyText.empty() ? Owned<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"))
                                              : ReadKey(keyText));
    const Owned<X509> certificate(X509_new());
    Require(key && certificate);
    X509* const x509 = certificate.get();
    std::uint32_t serial = 0;
    RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial);
    X509_set_version(x509, 2);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(x509), serial);
    X509_gmtime_adj(X509_getm_notBefore(x509), notBefore);
    X509_gmtime_adj(X509_getm_notAfter(x509), notAfter);
    X509_set_pubkey(x509, key.get());
    SetName(X509_get_subject_name(x509), commonName);
    Owned<EVP_PKEY> issuerKey;
    if (issuer != nullptr) {
        const Owned<X509> parent = Read(*issuer);
        issuerKey = ReadKey(issuer->key);
        X509_set_issuer_name(x509, X509_get_subject_name(parent.get()));
    } else {
        X509_set_issuer_name(x509, X509_get_subject_name(x509));
        // May sign others.
        Require(X509_add_ext(x509, MakeExtension("basicConstraints", "CA:TRUE").get(), -1) == 1);
    }
    for (const auto& [name, value] : extensions) {
        Require(X509_add_ext(x509, MakeExtension(name, value).get(), -1) == 1);
    }
    EVP_PKEY* const signing = issuerKey ? issuerKey.get() : key.get();
    Require(X509_sign(x509, signing, EVP_PKEY_is_a(signing, "ED25519") == 1 ? nullptr : EVP_sha256()) != 0);

    const Owned<BIO> pem(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_X509(pem.get(), x509) == 1);
    return {TextOf(pem.get()), TextOf(key.get()), Thumbprint(x509)};
}

std::string MakeKey(const std::string& kind) {
    const Owned<EVP_PKEY> key(kind == "RSA" ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048})
                                            : EVP_PKEY_Q_keygen(nullptr, nullptr, kind.c_str()));
    Require(key != nullptr);
    return TextOf(key.get());
}

std::string MakeRevocationList(const Certificate& issuer, const std::vector<Certificate>& revoked, long lastUpdate,
                               long nextUpdate, const ListShape& shape) {
    const auto parent = Read(issuer);
    const Owned<EVP_PKEY> key = ReadKey(issuer.key);
    const Owned<X509_CRL> list(X509_CRL_new());
    const Owned<ASN1_TIME> time(ASN1_TIME_new());
    Require(list && time);
    X509_CRL_set_version(list.get(), 1);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(parent.get()));
    if (shape.issuer != nullptr) {
        const Owned<X509_NAME> name(X509_NAME_new());
        Require(name &&
                X509_NAME_add_entry_by_NID(name.get(), NID_commonName, V_ASN1_PRINTABLESTRING,
                                           reinterpret_cast<const unsigned char*>(shape.issuer), -1, -1, 0) == 1);
        X509_CRL_set_issuer_name(list.get(), name.get());
    }
    X509_CRL_set1_lastUpdate(list.get(), X509_gmtime_adj(time.get(), lastUpdate));
    if (nextUpdate != 0) X509_CRL_set1_nextUpdate(list.get(), X509_gmtime_adj(time.get(), nextUpdate));
    if (shape.nextUpdate != nullptr) {
        Require(ASN1_STRING_set(time.get(), shape.nextUpdate, -1) == 1);
        X509_CRL_set1_nextUpdate(list.get(), time.get());
    }
    X509_gmtime_adj(time.get(), -60);
    const Owned<ASN1_ENUMERATED> reason(ASN1_ENUMERATED_new());
    Require(reason && ASN1_ENUMERATED_set(reason.get(), CRL_REASON_KEY_COMPROMISE) == 1);
    for (const Certificate& one : revoked) {
        const Owned<X509> certificate = Read(one);
        for (unsigned count = 0; count < shape.times; ++count) {
            Owned<X509_REVOKED> entry(X509_REVOKED_new());
            X509_REVOKED_set_serialNumber(entry.get(), X509_get_serialNumber(certificate.get()));
            X509_REVOKED_set_revocationDate(entry.get(), time.get());
            Require(X509_REVOKED_add1_ext_i2d(entry.get(), NID_crl_reason, reason.get(), 0, 0) == 1);
            Require(X509_CRL_add0_revoked(list.get(), entry.release()) == 1);
        }
    }
    for (const auto& [name, value] : shape.extensions) {
        Require(X509_CRL_add_ext(list.get(), MakeExtension(name, value).get(), -1) == 1);
    }
    for (const auto& [name, value] : shape.entryExtensions) {
        X509_REVOKED* const first = sk_X509_REVOKED_value(X509_CRL_get_REVOKED(list.get()), 0);
        Require(first != nullptr && X509_REVOKED_add_ext(first, MakeExtension(name, value).get(), 0) == 1);
    }
    const Owned<EVP_MD_CTX> signing(EVP_MD_CTX_new());
    EVP_PKEY_CTX* parameters = nullptr;
    const EVP_MD* const digest = EVP_get_digestbyname(shape.digest);
    Require(EVP_DigestSignInit(signing.get(), &parameters, digest, nullptr, key.get()) == 1);
    Require(!shape.isPss || EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1);
    Require(X509_CRL_sign_ctx(list.get(), signing.get()) != 0);
    const Owned<BIO> pem(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_X509_CRL(pem.get(), list.get()) == 1);
    return TextOf(pem.get());
}

std::string EncryptedKey(const Certificate& certificate) {
    const Owned<EVP_PKEY> key = ReadKey(certificate.key);
    const Owned<BIO> text(BIO_new(BIO_s_mem()));
    const unsigned char phrase[] = "pass phrase";
    Require(PEM_write_bio_PrivateKey(text.get(), key.get(), EVP_aes_128_cbc(), phrase, sizeof phrase - 1, nullptr,
                                     nullptr) == 1);
    return TextOf(text.get());
}

}  // namespace nimbrel::testing
