#include "services/apxd/names.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "services/apxd/back_end.h"

namespace nimbrel::apxd {
namespace {

constexpr std::array<std::uint8_t, 12> kMappedPrefix = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

// Whether all bits from `first` on are clear.
bool IsClearFrom(const std::array<std::uint8_t, 16>& bytes, unsigned first) {
    for (unsigned bit = first; bit < 128; ++bit) {
        if ((bytes[bit / 8] >> (7 - bit % 8) & 1U) != 0) return false;
    }
    return true;
}

}  // namespace

std::string AccountName(std::string_view hostName, std::string_view domain) {
    const std::size_t dot = hostName.find('.');
    const std::string_view host = hostName.substr(0, dot);
    if (!kit::IsComputerName(host)) {
        throw Refusal(kInvalidComputerName,
                      "the host's name is not 1 to 15 letters, digits and inner hyphens, or is digits alone");
    }
    if (dot != std::string_view::npos && !SameName(hostName.substr(dot + 1), domain)) {
        throw Refusal(kInvalidComputerName, "the host's name does not end in ." + std::string(domain));
    }
    return UpperCase(host);
}

std::optional<Address> Address::Parse(const std::string& text) {
    Address address;
    in_addr ipv4 = {};
    if (inet_pton(AF_INET, text.c_str(), &ipv4) == 1) {
        std::copy(kMappedPrefix.begin(), kMappedPrefix.end(), address._bytes.begin());
        std::memcpy(address._bytes.data() + kMappedPrefix.size(), &ipv4, sizeof ipv4);
        return address;
    }
    if (inet_pton(AF_INET6, text.c_str(), address._bytes.data()) == 1) return address;
    return std::nullopt;
}

std::optional<Address> Address::From(const sockaddr& address) {
    Address result;
    if (address.sa_family == AF_INET) {
        sockaddr_in ipv4 = {};
        std::memcpy(&ipv4, &address, sizeof ipv4);
        std::copy(kMappedPrefix.begin(), kMappedPrefix.end(), result._bytes.begin());
        std::memcpy(result._bytes.data() + kMappedPrefix.size(), &ipv4.sin_addr, sizeof ipv4.sin_addr);
        return result;
    }
    if (address.sa_family == AF_INET6) {
        sockaddr_in6 ipv6 = {};
        std::memcpy(&ipv6, &address, sizeof ipv6);
        std::memcpy(result._bytes.data(), &ipv6.sin6_addr, sizeof ipv6.sin6_addr);
        return result;
    }
    return std::nullopt;
}

bool Address::IsIPv4() const { return std::equal(kMappedPrefix.begin(), kMappedPrefix.end(), _bytes.begin()); }

std::string Address::Text() const {
    char text[INET6_ADDRSTRLEN] = {};
    if (IsIPv4()) {
        inet_ntop(AF_INET, _bytes.data() + kMappedPrefix.size(), text, sizeof text);
    } else {
        inet_ntop(AF_INET6, _bytes.data(), text, sizeof text);
    }
    return text;
}

std::string TextOf(const std::optional<Address>& client) { return client ? client->Text() : "unknown"; }

Address Address::Client() const {
    Address client = *this;
    if (!IsIPv4()) std::fill(client._bytes.begin() + 8, client._bytes.end(), std::uint8_t{0});
    return client;
}

std::optional<Network> Network::Parse(const std::string& text) {
    const std::size_t slash = text.find('/');
    const auto address = Address::Parse(text.substr(0, slash));
    if (!address) return std::nullopt;
    Network network;
    network._address = *address;
    if (slash == std::string::npos) return network;
    const unsigned most = address->IsIPv4() && text.find(':') == std::string::npos ? 32 : 128;
    unsigned bits = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + slash + 1, end, bits);
    if (error != std::errc() || rest != end || bits > most) return std::nullopt;
    network._bits = 128 - most + bits;
    if (!IsClearFrom(address->_bytes, network._bits)) return std::nullopt;
    return network;
}

bool Network::Contains(const Address& address) const {
    for (unsigned bit = 0; bit < _bits; ++bit) {
        const auto differing = static_cast<unsigned>(_address._bytes[bit / 8] ^ address._bytes[bit / 8]);
        if ((differing >> (7 - bit % 8) & 1U) != 0) return false;
    }
    return true;
}

}  // namespace nimbrel::apxd
