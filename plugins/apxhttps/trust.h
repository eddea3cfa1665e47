// Whether the certificate that a service presents is the trusted one.

#ifndef NIMBREL_APXHTTPS_TRUST_H_
#define NIMBREL_APXHTTPS_TRUST_H_

#include <openssl/x509.h>

#include <string>

namespace nimbrel::apxhttps {

// Decides within the TLS handshake, before anything is sent or believed. The certificate must have the SHA-1 thumbprint,
// must be within its time of validity, and must chain to one of the trusted certificates, or be one. Where there are
// none it stands for itself.
//
// Used by one thread.
class Trust {
 public:
    // `thumbprint` is "0A:1B:...:FF", `certificates` PEM with whatever else around it, or empty. A thumbprint that is no
    // such text, and a certificate text without a certificate, trust nobody.
    Trust(const std::string& thumbprint, const std::string& certificates);
    Trust(const Trust&) = delete;
    Trust& operator=(const Trust&) = delete;
    ~Trust();

    // True if nobody can be trusted: connecting is of no use.
    bool IsEmpty() const { return _reason != nullptr; }

    // Checks the chain that the peer presented.
    bool Accepts(X509_STORE_CTX* presented);

    // To be asked before anything is sent: a handshake can also end without any certificate, and nobody has asked
    // `Accepts` then. That is a refusal, with a reason.
    bool HasAccepted();

    // Why nobody, or the last one, is not trusted; null after a success, and before anything was asked.
    const char* Reason() const { return _reason; }

 private:
    bool ReadThumbprint(const std::string& text);
    bool ReadCertificates(const std::string& text);
    bool HasThumbprint(X509* certificate) const;
    bool Chains(X509* certificate, STACK_OF(X509) * others);

    unsigned char _thumbprint[20] = {};
    STACK_OF(X509) * _trusted;
    const char* _reason = nullptr;
    bool _accepted = false;
};

}  // namespace nimbrel::apxhttps

#endif  // NIMBREL_APXHTTPS_TRUST_H_
