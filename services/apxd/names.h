// The names in a request: which host, from where.

#ifndef NIMBREL_APXD_NAMES_H_
#define NIMBREL_APXD_NAMES_H_

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nimbrel::apxd {

// "node01.corp.test" and "node01" -> "NODE01". The host part is 1 to 15 letters, digits and hyphens, no hyphen first or
// last, not digits alone; a DNS suffix must be `domain`, in whatever case. Throws `Refusal` 1210.
std::string AccountName(std::string_view hostName, std::string_view domain);

// True for a name that `AccountName` accepts as host part.
bool IsHostPart(std::string_view name);

std::string UpperCase(std::string_view text);
bool SameName(std::string_view left, std::string_view right);

// An IPv4 or IPv6 address; an IPv4 address is the same as its IPv6-mapped form.
class Address {
 public:
    // Unset if it is none.
    static std::optional<Address> Parse(const std::string& text);
    static std::optional<Address> From(const sockaddr& address);

    // "192.0.2.10", "2001:db8::1".
    std::string Text() const;

    bool operator==(const Address&) const = default;
    auto operator<=>(const Address&) const = default;

 private:
    friend class Network;
    bool IsIPv4() const;

    std::array<std::uint8_t, 16> _bytes = {};
};

// "192.0.2.0/24", "2001:db8::/32", or one address.
class Network {
 public:
    // Unset if it is malformed, or has bits set behind the prefix.
    static std::optional<Network> Parse(const std::string& text);

    bool Contains(const Address& address) const;

 private:
    Address _address;
    unsigned _bits = 128;  // of the IPv6-mapped form
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_NAMES_H_
