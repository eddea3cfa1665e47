// The thumbprint of a certificate.

#ifndef NIMAUTH_ACTIVEDIRECTORY_THUMBPRINT_H_
#define NIMAUTH_ACTIVEDIRECTORY_THUMBPRINT_H_

#include <string>

namespace nimbrel::authentication {

// SHA-1 over the DER form of the first certificate in `certificate` (PEM): twenty bytes in upper-case hexadecimal with
// ':' between them, "0A:1B:...:FF". Throws `InvalidCertificateException` if there is no certificate in it.
// Nobody is asked for the pass phrase of an encrypted one: it is refused.
//
// The memory BIO and the parsed certificate stay allocated; an import happens a few times in a host's life.
std::string ThumbprintOfPEM(const std::string& certificate);

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_ACTIVEDIRECTORY_THUMBPRINT_H_
