#include "services/apxd/tls_files.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <memory>
#include <new>
#include <type_traits>

namespace nimbrel::apxd {
namespace {

gnutls_datum_t Datum(const std::string& text) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())), static_cast<unsigned>(text.size())};
}

struct CredentialsFree {
    void operator()(gnutls_certificate_credentials_t credentials) const {
        gnutls_certificate_free_credentials(credentials);
    }
};
using Credentials = std::unique_ptr<std::remove_pointer_t<gnutls_certificate_credentials_t>, CredentialsFree>;

Credentials MakeCredentials() {
    gnutls_certificate_credentials_t made = nullptr;
    if (gnutls_certificate_allocate_credentials(&made) != GNUTLS_E_SUCCESS) throw std::bad_alloc();
    return Credentials(made);
}

}  // namespace

TlsFiles TlsFiles::Read(const Config& config) {
    TlsFiles files;
    files.certificate = ReadTextFile(config.certificateFile);
    files.key = SecretText(ReadTextFile(config.keyFile));
    if (!config.clientCaFile.empty()) files.clientCa = ReadTextFile(config.clientCaFile);

    const Credentials credentials = MakeCredentials();
    const gnutls_datum_t certificate = Datum(files.certificate);
    const gnutls_datum_t key = Datum(files.key.Text());
    int result = gnutls_certificate_set_x509_key_mem(credentials.get(), &certificate, &key, GNUTLS_X509_FMT_PEM);
    if (result < 0) {
        throw ConfigError(config.certificateFile + ", " + config.keyFile + ": " + gnutls_strerror(result));
    }
    const gnutls_datum_t clientCa = Datum(files.clientCa);
    result = config.clientCaFile.empty()
                 ? 1
                 : gnutls_certificate_set_x509_trust_mem(credentials.get(), &clientCa, GNUTLS_X509_FMT_PEM);
    if (result <= 0) throw ConfigError(config.clientCaFile + ": holds no certificate");
    return files;
}

}  // namespace nimbrel::apxd
