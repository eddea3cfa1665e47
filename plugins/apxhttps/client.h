// The conversation with the proxy service: one HTTPS question, one answer.
//
// Threads: any; a call belongs to its thread. Every failure leaves a line in the system log that tells the reason; no
// line holds a secret.

#ifndef NIMBREL_APXHTTPS_CLIENT_H_
#define NIMBREL_APXHTTPS_CLIENT_H_

#include <cstdint>
#include <string>

namespace nimbrel::apxhttps {

inline constexpr std::uint32_t kSuccess = 0;
inline constexpr std::uint32_t kNotEnoughMemory = 8;
inline constexpr std::uint32_t kConnectionRefused = 1225;
inline constexpr std::uint32_t kConnectionInvalid = 1229;
inline constexpr std::uint32_t kInvalidSettings = 1610;  // the configuration data is corrupt
inline constexpr std::uint32_t kTimedOut = 10060;
inline constexpr std::uint32_t kUntrustedCertificate = 0x80090325;

// Whom to ask and how to know it.
struct Service {
    std::string address;  // IPv4
    bool verify = true;
    std::string thumbprint;
    std::string certificates;
};

// The answer's body; wiped when the object is destroyed.
struct Body {
    Body() = default;
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;
    ~Body();

    std::string text;
};

// Asks GET `path`, or POST with a JSON `request` that is not empty. On success `body` is that of a 2xx answer. A refusal
// of the service returns its own number.
std::uint32_t Ask(const Service& service, const std::string& path, const std::string& request, Body& body);

}  // namespace nimbrel::apxhttps

#endif  // NIMBREL_APXHTTPS_CLIENT_H_
