// What the proxy service answers (docs/formats/apx-protocol.md), read with suspicion: it comes over the network.
//
// Threads: no state.

#ifndef NIMBREL_APXHTTPS_ANSWERS_H_
#define NIMBREL_APXHTTPS_ANSWERS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace nimbrel::apxhttps {

// No answer is longer; a longer one is broken off.
inline constexpr std::size_t kLargestAnswer = 65536;

struct DomainAnswer {
    std::string netbiosName;
    std::string dnsName;
    std::string sid;
};

struct AccountAnswer {
    std::string accountName;
    std::string oneTimeSecret;
};

// Unset for anything but a JSON object whose members are all there, texts, not empty, and without control characters:
// they become C strings, names and log lines. Members that are not known are passed over.
std::optional<DomainAnswer> ParseDomainAnswer(const std::string& body);
std::optional<AccountAnswer> ParseAccountAnswer(const std::string& body);

// A refusal's Windows system error number; never 0.
struct RefusalAnswer {
    std::uint32_t status = 0;
    std::string message;  // for the log
};
std::optional<RefusalAnswer> ParseRefusal(const std::string& body);

// {"accountName": ..., "organizationalUnit": ...}; bytes that are not UTF-8 are replaced, which the service refuses.
std::string AccountRequest(const std::string& accountName, const std::string& organizationalUnit);

}  // namespace nimbrel::apxhttps

#endif  // NIMBREL_APXHTTPS_ANSWERS_H_
