#include "trust.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <new>

namespace nimbrel::apxhttps {
namespace {

struct Free {
    void operator()(BIO* memory) const { BIO_free(memory); }
    void operator()(X509_STORE* store) const { X509_STORE_free(store); }
    void operator()(X509_STORE_CTX* context) const { X509_STORE_CTX_free(context); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Free>;

constexpr std::size_t kThumbprintText = 59;  // 20 bytes of two digits, ':' between them

// The value of one digit, or -1.
int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

Trust::Trust(const std::string& thumbprint, const std::string& certificates) : _trusted(sk_X509_new_null()) {
    if (_trusted == nullptr) throw std::bad_alloc();
    if (!ReadThumbprint(thumbprint)) {
        _reason = "there is no usable thumbprint to compare with";
    } else if (!certificates.empty() && !ReadCertificates(certificates)) {
        _reason = "the trusted certificate cannot be read";
    }
}

Trust::~Trust() { sk_X509_pop_free(_trusted, X509_free); }

bool Trust::ReadThumbprint(const std::string& text) {
    if (text.size() != kThumbprintText) return false;
    for (std::size_t index = 0; index < sizeof _thumbprint; ++index) {
        const int high = HexDigit(text[3 * index]);
        const int low = HexDigit(text[3 * index + 1]);
        const bool separated = 3 * index + 2 == kThumbprintText || text[3 * index + 2] == ':';
        if (high < 0 || low < 0 || !separated) return false;
        _thumbprint[index] = static_cast<unsigned char>(high * 16 + low);
    }
    return true;
}

bool Trust::ReadCertificates(const std::string& text) {
    const Owned<BIO> memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (memory == nullptr) throw std::bad_alloc();
    // Tried in place of asking for one: an encrypted certificate must not stop the host's agent at a prompt.
    char noPassPhrase[] = "";
    while (X509* const certificate = PEM_read_bio_X509(memory.get(), nullptr, nullptr, noPassPhrase)) {
        if (sk_X509_push(_trusted, certificate) == 0) {
            X509_free(certificate);
            throw std::bad_alloc();
        }
    }
    ERR_clear_error();
    return sk_X509_num(_trusted) > 0;
}

bool Trust::HasThumbprint(X509* certificate) const {
    unsigned char digest[EVP_MAX_MD_SIZE] = {};
    unsigned int size = 0;
    return X509_digest(certificate, EVP_sha1(), digest, &size) == 1 && size == sizeof _thumbprint &&
           CRYPTO_memcmp(digest, _thumbprint, size) == 0;
}

// A trusted certificate ends the chain whether or not it signed itself.
bool Trust::Chains(X509* certificate, STACK_OF(X509) * others) {
    const Owned<X509_STORE> store(X509_STORE_new());
    const Owned<X509_STORE_CTX> context(X509_STORE_CTX_new());
    if (store == nullptr || context == nullptr) throw std::bad_alloc();
    if (sk_X509_num(_trusted) == 0) X509_STORE_add_cert(store.get(), certificate);
    for (int index = 0; index < sk_X509_num(_trusted); ++index) {
        X509_STORE_add_cert(store.get(), sk_X509_value(_trusted, index));
    }
    X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN);
    if (X509_STORE_CTX_init(context.get(), store.get(), certificate, others) != 1) throw std::bad_alloc();
    if (X509_verify_cert(context.get()) == 1) return true;
    _reason = X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
    return false;
}

bool Trust::Accepts(X509_STORE_CTX* presented) {
    _accepted = false;
    if (IsEmpty()) return false;
    X509* const certificate = X509_STORE_CTX_get0_cert(presented);
    if (certificate == nullptr || !HasThumbprint(certificate)) {
        _reason = "its thumbprint is not that of the trusted certificate";
        return false;
    }
    _accepted = Chains(certificate, X509_STORE_CTX_get0_untrusted(presented));
    return _accepted;
}

bool Trust::HasAccepted() {
    if (!_accepted && !IsEmpty()) _reason = "it has shown no certificate";
    return _accepted;
}

}  // namespace nimbrel::apxhttps
