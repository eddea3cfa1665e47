// The certificate of an authentication proxy, as an administrator looks at it before trusting it.

#ifndef NIMAUTHCTL_PROXY_CERTIFICATE_H_
#define NIMAUTHCTL_PROXY_CERTIFICATE_H_

#include <string>

namespace nimbrel::nimauthctl {

struct ProxyCertificate {
    std::string subject;     // "CN = proxy.corp.test"
    std::string issuer;      //
    std::string validFrom;   // "2026-01-01 00:00:00 UTC"
    std::string validUntil;  //
    std::string thumbprint;  // SHA-1: "0A:1B:...:FF"
    bool isValidNow = false;
    std::string pem;
};

// The first certificate in a PEM text, which is kept as it is. Throws `InvalidCertificateException` if there is none.
ProxyCertificate ReadProxyCertificate(const std::string& text);

// What the proxy presents: nothing is checked, and nothing but the handshake is sent. `address` is an IPv4 address, the
// port that of the proxy plug-in's settings. Throws `ToolError`, with the time over too.
ProxyCertificate FetchProxyCertificate(const std::string& address, int timeoutSeconds);

// "0a1b..." and "0A:1B:..." are the same thumbprint.
bool SameThumbprint(const std::string& left, const std::string& right);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_PROXY_CERTIFICATE_H_
