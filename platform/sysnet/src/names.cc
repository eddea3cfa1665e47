#include "names.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>
#include <optional>

#include "hostmgmt/exceptions.h"

namespace SysNet::Network {
namespace {

using HostMgmt::Lib::HostMgmtException;

constexpr std::size_t kLongestDomain = 253;
constexpr std::size_t kLongestLabel = 63;

[[noreturn]] void Refuse(const std::string& text, const char* what) {
    throw HostMgmtException(("'" + text + "' is not " + what).c_str());
}

// The address in network byte order, 4 or 16 bytes.
std::optional<std::string> AddressBytes(const std::string& text) {
    if (text.find('\0') != std::string::npos) return std::nullopt;
    char bytes[sizeof(in6_addr)] = {};
    if (inet_pton(AF_INET, text.c_str(), bytes) == 1) return std::string(bytes, sizeof(in_addr));
    if (inet_pton(AF_INET6, text.c_str(), bytes) == 1) return std::string(bytes, sizeof(in6_addr));
    return std::nullopt;
}

bool IsHostNameCharacter(char c) { return c > ' ' && c < '\x7f' && c != '#'; }

bool IsLabelCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

bool IsLabel(std::string_view label) {
    return !label.empty() && label.size() <= kLongestLabel && std::all_of(label.begin(), label.end(), IsLabelCharacter);
}

std::string_view WithoutFinalDot(std::string_view domain) {
    if (!domain.empty() && domain.back() == '.') domain.remove_suffix(1);
    return domain;
}

bool IsDomain(std::string_view domain) {
    domain = WithoutFinalDot(domain);
    if (domain.size() > kLongestDomain) return false;
    for (std::size_t dot = domain.find('.'); dot != std::string_view::npos; dot = domain.find('.')) {
        if (!IsLabel(domain.substr(0, dot))) return false;
        domain.remove_prefix(dot + 1);
    }
    return IsLabel(domain);
}

char FoldCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

void CheckAddress(const std::string& address) {
    if (!AddressBytes(address)) Refuse(address, "an IP address");
}

void CheckHostName(const std::string& name) {
    if (name.empty() || !std::all_of(name.begin(), name.end(), IsHostNameCharacter)) Refuse(name, "a host name");
}

void CheckSearchDomain(const std::string& domain) {
    if (!IsDomain(domain)) Refuse(domain, "a domain name");
}

void CheckNetStackName(const std::string& name) {
    if (name != "defaultTcpipStack") Refuse(name, "a network stack of this host; the only one is 'defaultTcpipStack'");
}

bool SameAddress(const std::string& a, const std::string& b) {
    const auto bytes = AddressBytes(a);
    return bytes && bytes == AddressBytes(b);
}

bool SameDomain(std::string_view a, std::string_view b) {
    a = WithoutFinalDot(a);
    b = WithoutFinalDot(b);
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char left, char right) { return FoldCase(left) == FoldCase(right); });
}

}  // namespace SysNet::Network
