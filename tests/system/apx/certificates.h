// Certificates for the tests' servers, made as needed: good ones, expired ones, and others with the right name.

#ifndef TESTS_SYSTEM_APX_CERTIFICATES_H_
#define TESTS_SYSTEM_APX_CERTIFICATES_H_

#include <map>
#include <string>
#include <vector>

namespace nimbrel::testing {

struct Certificate {
    std::string pem;
    std::string key;         // PEM
    std::string thumbprint;  // "0A:1B:...:FF"
};

// With this key, in PEM, or a new P-256 one; valid from `notBefore` to `notAfter`, in seconds from now. Signed by `issuer`,
// or by itself.
// `extensions` are name and value as OpenSSL writes them: {"subjectAltName", "DNS:node01.corp.test"}.
using Extensions = std::map<std::string, std::string>;
Certificate MakeCertificate(const std::string& commonName, const Certificate* issuer = nullptr, long notBefore = -3600,
                            long notAfter = 86400, const Extensions& extensions = {}, const std::string& key = "");

// "RSA" (of 2048 bits) or "ED25519", in PEM.
std::string MakeKey(const std::string& kind);

struct ListShape {
    unsigned times = 1;  // each certificate stands there so often, with a reason
    const char* digest = "SHA256";
    bool isPss = false;                // an RSA key's signature
    Extensions extensions = {};        // of the list, as OpenSSL writes them
    Extensions entryExtensions = {};   // of its first entry, each in front of those before
    const char* issuer = nullptr;      // its common name as a PrintableString, if spelled otherwise than by the issuer
    const char* nextUpdate = nullptr;  // the time's text, whatever it says
};

// What the issuer says of certificates that it has taken back, in PEM; made and to be renewed in seconds from now. Never to
// be renewed if `nextUpdate` is 0.
std::string MakeRevocationList(const Certificate& issuer, const std::vector<Certificate>& revoked,
                               long lastUpdate = -3600, long nextUpdate = 86400, const ListShape& shape = {});

// The key as PEM that needs a pass phrase.
std::string EncryptedKey(const Certificate& certificate);

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_APX_CERTIFICATES_H_
