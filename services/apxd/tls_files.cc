#include "services/apxd/tls_files.h"

#include <fcntl.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <new>
#include <system_error>
#include <type_traits>
#include <utility>

#include "pluginkit/descriptor.h"
#include "services/apxd/datum.h"

namespace nimbrel::apxd {
namespace {

constexpr off_t kLargestKey = 1024L * 1024;
constexpr std::size_t kLargestList = 64UL * 1024 * 1024;  // a million certificates

struct CredentialsFree {
    void operator()(gnutls_certificate_credentials_t credentials) const {
        gnutls_certificate_free_credentials(credentials);
    }
};
using Credentials = std::unique_ptr<std::remove_pointer_t<gnutls_certificate_credentials_t>, CredentialsFree>;

[[noreturn]] void FailWith(int error, const std::string& path) {
    throw ConfigError(path + ":0: " + std::generic_category().message(error));
}

// In room that is there from the start: growing would leave copies of the key in the heap.
SecretText ReadKey(const std::string& path) {
    const kit::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) FailWith(errno, path);
    struct stat status = {};
    if (fstat(file.Number(), &status) != 0) FailWith(errno, path);
    if (status.st_size > kLargestKey) FailWith(EFBIG, path);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t count = read(file.Number(), text.data(), text.size());
    const int error = errno;
    if (count < 0) FailWith(error, path);
    text.resize(static_cast<std::size_t>(count));
    return SecretText(std::move(text));
}

// Takes what is revoked out of the authorities.
RevocationLists ReadRevoked(const Config& config, std::string& clientCa) {
    try {
        const std::string text = ReadTextFile(config.clientCrlFile, kLargestList);
        RevocationLists lists = RevocationLists::Read(text, clientCa, std::time(nullptr));
        clientCa = lists.LeftOf(clientCa);
        return lists;
    } catch (const RevocationListError& error) {
        throw ConfigError(config.clientCrlFile + ": " + error.what());
    } catch (const AuthoritiesError& error) {
        throw ConfigError(config.clientCaFile + ": " + error.what());
    }
}

Credentials MakeCredentials() {
    gnutls_certificate_credentials_t made = nullptr;
    if (gnutls_certificate_allocate_credentials(&made) != GNUTLS_E_SUCCESS) throw std::bad_alloc();
    return Credentials(made);
}

}  // namespace

TlsFiles TlsFiles::Read(const Config& config) {
    TlsFiles files;
    files.certificate = ReadTextFile(config.certificateFile);
    files.key = ReadKey(config.keyFile);
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
    if (!config.clientCrlFile.empty()) files.revoked = ReadRevoked(config, files.clientCa);
    return files;
}

}  // namespace nimbrel::apxd
