#include "names.h"

#include <cstdint>

#include "addirectory/ad_error.h"
#include "sockets.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kMaximumUserName = 256;
constexpr char kHexDigits[] = "0123456789abcdef";

UserName CheckedUserName(std::string_view name, std::string_view domain) {
    const bool domainIsGood = domain.empty() || kit::IsDnsName(domain);
    if (name.empty() || !domainIsGood || name.find_first_of("\"/\\[]:;|=,+*?<>@") != std::string_view::npos) {
        throw AdError(kStatusInvalidAccountName, "The user name is malformed");
    }
    return {std::string(name), std::string(domain)};
}

// "*" -> "\2a".
std::string HexFilter(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return {'\\', kHexDigits[byte >> 4], kHexDigits[byte & 0x0f]};
}

}  // namespace

std::string DnsName(std::string_view name) {
    name = kit::WithoutFinalDot(name);
    if (!kit::IsDnsName(name)) {
        throw AdError(kStatusInvalidDomainName, "The domain name is malformed");
    }
    return LowerCase(name);
}

std::string ComputerName(std::string_view name) {
    name = kit::BareComputerName(name);
    if (!kit::IsComputerName(name)) {
        throw AdError(kStatusInvalidComputerName,
                      "The host name is malformed: a computer account takes 1 to 15 letters, digits and hyphens");
    }
    return UpperCase(name);
}

std::string ControllerName(std::string_view name) {
    if (!HasControlCharacters(name) && Endpoint::FromText(std::string(name), 0)) {
        return LowerCase(name);
    }
    name = kit::WithoutFinalDot(name);
    if (!kit::IsDnsName(name)) {
        throw AdError(kStatusInvalidComputerName, "The domain controller's name is malformed");
    }
    return LowerCase(name);
}

std::string HostName(const std::string& computer, const std::string& domain) {
    return LowerCase(computer) + "." + domain;
}

UserName SplitUserName(std::string_view text) {
    if (text.size() > kMaximumUserName || !IsUtf8(text) || HasControlCharacters(text)) {
        throw AdError(kStatusInvalidAccountName, "The user name is malformed");
    }
    const auto backslash = text.find('\\');
    if (backslash == 0) {
        throw AdError(kStatusInvalidAccountName, "The user name is malformed");
    }
    if (backslash != std::string_view::npos) {
        return CheckedUserName(text.substr(backslash + 1), text.substr(0, backslash));
    }
    const auto at = text.rfind('@');
    if (at != std::string_view::npos) {
        return CheckedUserName(text.substr(0, at), kit::WithoutFinalDot(text.substr(at + 1)));
    }
    return CheckedUserName(text, "");
}

std::string DomainDN(const std::string& domain) {
    std::string name = "DC=";
    for (const char c : domain) {
        name += c == '.' ? std::string(",DC=") : std::string(1, c);
    }
    return name;
}

std::string EscapeFilter(std::string_view value) {
    std::string escaped;
    for (const char c : value) {
        const bool special = c == '*' || c == '(' || c == ')' || c == '\\' || c == '\0';
        escaped += special ? HexFilter(c) : std::string(1, c);
    }
    return escaped;
}

std::string SidText(std::string_view binary) {
    const auto byte = [&](std::size_t i) { return std::uint64_t{static_cast<unsigned char>(binary[i])}; };
    if (binary.size() < 8 || byte(0) != 1 || binary.size() != 8 + 4 * byte(1)) {
        return "";
    }
    std::uint64_t authority = 0;
    for (std::size_t i = 2; i < 8; ++i) {
        authority = authority << 8 | byte(i);
    }
    std::string text = "S-1-" + std::to_string(authority);
    for (std::size_t i = 8; i < binary.size(); i += 4) {
        text += "-" + std::to_string(byte(i) | byte(i + 1) << 8 | byte(i + 2) << 16 | byte(i + 3) << 24);
    }
    return text;
}

}  // namespace nimbrel::ad
