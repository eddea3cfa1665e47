#include "activedirectory/thumbprint.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include "authentication/exceptions.h"

namespace nimbrel::authentication {
namespace {

std::string FormatThumbprint(const unsigned char* digest, unsigned int size) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (unsigned int index = 0; index < size; ++index) {
        if (index != 0) text += ':';
        text += kDigits[digest[index] >> 4U];
        text += kDigits[digest[index] & 0xFU];
    }
    return text;
}

// What fails here must not look like the host's own next failure: the error queue of the thread is left as it was.
class KeptErrors {
 public:
    KeptErrors() { ERR_set_mark(); }
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;
    ~KeptErrors() { ERR_pop_to_mark(); }
};

}  // namespace

// The two objects are not released on purpose: that is how this operation has always stood, and it is the one entry of
// the leak checker's suppressions.
std::string ThumbprintOfPEM(const std::string& certificate) {
    const KeptErrors errors;
    // Tried in place of asking for one: an encrypted certificate must not stop the host's agent at a prompt.
    char noPassPhrase[] = "";
    BIO* const memory = BIO_new(BIO_s_mem());
    BIO_puts(memory, certificate.c_str());
    const X509* const parsed = PEM_read_bio_X509(memory, nullptr, nullptr, noPassPhrase);
    if (parsed == nullptr) throw InvalidCertificateException();

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (X509_digest(parsed, EVP_sha1(), digest, &size) != 1) throw InvalidCertificateException();
    return FormatThumbprint(digest, size);
}

}  // namespace nimbrel::authentication
