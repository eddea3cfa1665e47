// A certificate that an administrator imports: its thumbprint is that of its DER form, taken here from the PEM's parts;
// anything else is refused; and nobody is asked for a pass phrase.
//
// Input: a byte, then by its lowest bit the PEM text itself, or a certificate's DER form that is put into PEM here.

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ui.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "activedirectory/thumbprint.h"
#include "authentication/exceptions.h"
#include "fuzz.h"

namespace {

// What an import leaves allocated, which is wanted once but not millions of times.
std::vector<BIO*> buffers;
std::vector<X509*> certificates;

void FreeAll() {
    for (BIO* const buffer : buffers) BIO_free(buffer);
    for (X509* const certificate : certificates) X509_free(certificate);
    buffers.clear();
    certificates.clear();
    ERR_clear_error();
}

}  // namespace

extern "C" {

BIO* __real_BIO_new(const BIO_METHOD* method);
BIO* __wrap_BIO_new(const BIO_METHOD* method);
X509* __real_PEM_read_bio_X509(BIO* bio, X509** certificate, pem_password_cb* callback, void* argument);
X509* __wrap_PEM_read_bio_X509(BIO* bio, X509** certificate, pem_password_cb* callback, void* argument);

BIO* __wrap_BIO_new(const BIO_METHOD* method) {
    buffers.push_back(__real_BIO_new(method));
    return buffers.back();
}

X509* __wrap_PEM_read_bio_X509(BIO* bio, X509** certificate, pem_password_cb* callback, void* argument) {
    X509* const parsed = __real_PEM_read_bio_X509(bio, certificate, callback, argument);
    if (parsed != nullptr) certificates.push_back(parsed);
    return parsed;
}

}  // extern "C"

namespace {

using fuzzing::Require;

int RefuseToAsk(UI*) {
    Require(false, "nobody is asked for a pass phrase");
    return 0;
}

void WatchTheTerminal() {
    static UI_METHOD* const method = UI_create_method("watched");
    UI_method_set_opener(method, RefuseToAsk);
    UI_set_default_method(method);
}

std::string Thumbprint(const std::string& text) {
    try {
        return nimbrel::authentication::ThumbprintOfPEM(text);
    } catch (const nimbrel::authentication::InvalidCertificateException&) {
        return "";
    }
}

std::string Pem(const std::string& der) {
    BIO* const out = BIO_new(BIO_s_mem());
    PEM_write_bio(out, "CERTIFICATE", "", reinterpret_cast<const unsigned char*>(der.data()),
                  static_cast<long>(der.size()));
    const char* text = nullptr;
    const long size = BIO_get_mem_data(out, &text);
    return {text, static_cast<std::size_t>(size)};
}

std::string ThumbprintOfDer(const std::string& der) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
    X509* const certificate = d2i_X509(nullptr, &bytes, static_cast<long>(der.size()));
    if (certificate == nullptr) return "";
    certificates.push_back(certificate);
    unsigned char* form = nullptr;
    const int size = i2d_X509(certificate, &form);
    if (size < 0) return "";
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestSize = 0;
    const int done = EVP_Digest(form, static_cast<std::size_t>(size), digest, &digestSize, EVP_sha1(), nullptr);
    OPENSSL_free(form);
    std::string text;
    for (unsigned int i = 0; i < digestSize; ++i) {
        char byte[4];
        std::snprintf(byte, sizeof byte, "%02X:", digest[i]);
        text += byte;
    }
    if (!text.empty()) text.pop_back();
    return done == 1 ? text : "";
}

bool LooksLikeThumbprint(const std::string& text) {
    return text.size() == 59 && text.find_first_not_of("0123456789ABCDEF:") == std::string::npos &&
           std::count(text.begin(), text.end(), ':') == 19;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    WatchTheTerminal();
    fuzzing::Input input(data, size);
    const bool isDer = (input.Byte() & 1U) != 0;
    const std::string rest = input.Rest();
    const std::string thumbprint = Thumbprint(isDer ? Pem(rest) : rest);
    Require(thumbprint.empty() || LooksLikeThumbprint(thumbprint), "twenty bytes in hexadecimal");
    Require(!isDer || thumbprint == ThumbprintOfDer(rest), "the thumbprint is that of the DER form");
    if (!isDer && !thumbprint.empty()) {
        Require(Thumbprint(rest + "\n-----BEGIN CERTIFICATE-----\n") == thumbprint, "what follows does not count");
    }
    FreeAll();
    return 0;
}
