// The names in a request: which host, from where.

#ifndef NIMBREL_APXD_NAMES_H_
#define NIMBREL_APXD_NAMES_H_

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "pluginkit/directory_names.h"

namespace nimbrel::apxd {

// "node01.corp.test" and "node01" -> "NODE01". The host part is 1 to 15 letters, digits and hyphens, no hyphen first or
// last, not digits alone; a DNS suffix must be `domain`, in whatever case. Throws `Refusal` 1210.
std::string AccountName(std::string_view hostName, std::string_view domain);

using kit::SameName;
using kit::UpperCase;

// An IPv4 or IPv6 address; an IPv4 address is the same as its IPv6-mapped form.
class Address {
 public:
    // Unset if it is none.
    static std::optional<Address> Parse(const std::string& text);
    static std::optional<Address> From(const sockaddr& address);

    // "192.0.2.10", "2001:db8::1".
    std::string Text() const;

    // What counts as one client: an IPv4 address itself; of an IPv6 address the network of 64 bits, "2001:db8::" for
    // "2001:db8::1", as a host may take any address in it.
    Address Client() const;

    bool operator==(const Address&) const = default;
    auto operator<=>(const Address&) const = default;

 private:
    friend class Network;
    bool IsIPv4() const;

    std::array<std::uint8_t, 16> _bytes = {};
};

// "unknown" for none.
std::string TextOf(const std::optional<Address>& client);

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
