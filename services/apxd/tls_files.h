// What TLS needs of the file system, read and tried before anything listens with it.

#ifndef NIMBREL_APXD_TLS_FILES_H_
#define NIMBREL_APXD_TLS_FILES_H_

#include <string>

#include "services/apxd/config.h"
#include "services/apxd/revocation_lists.h"
#include "services/apxd/secret_text.h"

namespace nimbrel::apxd {

struct TlsFiles {
    std::string certificate;
    SecretText key;
    std::string clientCa;  // without those that are revoked
    RevocationLists revoked;

    // Throws `ConfigError` if a file cannot be read, the key does not belong to the certificate, a file holds neither, or
    // a list of revoked certificates is out of date.
    static TlsFiles Read(const Config& config);
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_TLS_FILES_H_
