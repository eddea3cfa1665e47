// Certificates made by the `openssl` command, and what it says of them.

#ifndef TESTS_PROXY_CERTIFICATES_H_
#define TESTS_PROXY_CERTIFICATES_H_

#include <string>

namespace nimbrel::authentication::test {

// A self-signed certificate in PEM form with a new key: "rsa:2048", "ec -pkeyopt ec_paramgen_curve:P-256", "ed25519".
std::string MakeCertificate(const std::string& key);

// The key of the certificate that was made last, PEM.
std::string LastKey();

// What `openssl x509 -fingerprint -sha1` prints of a certificate, after the '='.
std::string FingerprintOf(const std::string& certificate);

// The certificate in another form: "-outform DER", "-text".
std::string Convert(const std::string& certificate, const std::string& options);

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PROXY_CERTIFICATES_H_
