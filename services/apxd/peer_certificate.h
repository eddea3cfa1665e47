// The certificate that a client has shown in the TLS handshake.

#ifndef NIMBREL_APXD_PEER_CERTIFICATE_H_
#define NIMBREL_APXD_PEER_CERTIFICATE_H_

#include <gnutls/gnutls.h>

#include <optional>
#include <string>
#include <vector>

#include "services/apxd/revocation_lists.h"

namespace nimbrel::apxd {

struct PeerCertificate {
    std::string fingerprint;         // SHA-256, 64 hexadecimal digits
    std::vector<std::string> names;  // the DNS names of its subject; where it has none the common name, if any
    const char* fault = nullptr;     // why it is not good all the same: the authorities have taken it back
};

// Unset without a certificate, and for one that does not chain to the session's authorities, is not valid now, or is not
// meant for clients although it tells what it is meant for. Throws `std::bad_alloc`.
std::optional<PeerCertificate> ReadPeerCertificate(gnutls_session_t session, const RevocationLists& revoked);

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_PEER_CERTIFICATE_H_
