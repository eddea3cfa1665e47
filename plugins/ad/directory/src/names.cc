#include "names.h"

#include <algorithm>
#include <cstdint>

#include "addirectory/ad_error.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kMaximumDnsName = 253;
constexpr std::size_t kMaximumLabel = 63;
constexpr std::size_t kMaximumComputerName = 15;
constexpr std::size_t kMaximumUserName = 256;
constexpr char kHexDigits[] = "0123456789abcdef";

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLabelCharacter(char c) { return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z') || c == '-' || c == '_'; }

bool IsLabel(std::string_view label) {
    return !label.empty() && label.size() <= kMaximumLabel && label.front() != '-' && label.back() != '-' &&
           std::all_of(label.begin(), label.end(), IsLabelCharacter);
}

bool IsDnsName(std::string_view name) {
    if (name.size() > kMaximumDnsName) {
        return false;
    }
    while (true) {
        const auto dot = name.find('.');
        if (!IsLabel(name.substr(0, dot))) {
            return false;
        }
        if (dot == std::string_view::npos) {
            return true;
        }
        name.remove_prefix(dot + 1);
    }
}

std::string_view WithoutFinalDot(std::string_view name) {
    return name.size() > 1 && name.back() == '.' ? name.substr(0, name.size() - 1) : name;
}

// The length of the well-formed sequence at the front of `text`, or 0.
std::size_t Utf8Sequence(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (length == 0 || first > 0xf4 || length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xf0 && byte(1) < 0x90);
    const bool noScalar = (first == 0xed && byte(1) > 0x9f) || (first == 0xf4 && byte(1) > 0x8f);
    return overlong || noScalar ? 0 : length;
}

UserName CheckedUserName(std::string_view name, std::string_view domain) {
    const bool domainIsGood = domain.empty() || IsDnsName(domain);
    if (name.empty() || !domainIsGood || name.find_first_of("\"/\\[]:;|=,+*?<>@") != std::string_view::npos) {
        throw AdError(kStatusInvalidAccountName, "The user name is malformed");
    }
    return {std::string(name), std::string(domain)};
}

}  // namespace

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

std::string UpperCase(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), Upper);
    return upper;
}

bool SameName(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = Utf8Sequence(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

bool HasControlCharacters(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; });
}

std::string DnsName(std::string_view name) {
    name = WithoutFinalDot(name);
    if (!IsDnsName(name)) {
        throw AdError(kStatusInvalidDomainName, "The domain name is malformed");
    }
    return LowerCase(name);
}

std::string ComputerName(std::string_view name) {
    name = name.substr(0, name.find('.'));
    if (!name.empty() && name.back() == '$') {
        name.remove_suffix(1);
    }
    const bool wellFormed = name.size() <= kMaximumComputerName && IsLabel(name) &&
                            name.find('_') == std::string_view::npos && !std::all_of(name.begin(), name.end(), IsDigit);
    if (!wellFormed) {
        throw AdError(kStatusInvalidComputerName,
                      "The host name is malformed: a computer account takes 1 to 15 letters, digits and hyphens");
    }
    return UpperCase(name);
}

std::string ControllerName(std::string_view name) {
    name = WithoutFinalDot(name);
    if (!IsDnsName(name)) {
        throw AdError(kStatusInvalidComputerName, "The domain controller's name is malformed");
    }
    return LowerCase(name);
}

std::string HostName(const std::string& computer, const std::string& domain) {
    return LowerCase(computer) + "." + domain;
}

std::string HostPrincipalName(const std::string& computer, const std::string& domain) {
    return "host/" + HostName(computer, domain) + "@" + UpperCase(domain);
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
        return CheckedUserName(text.substr(0, at), WithoutFinalDot(text.substr(at + 1)));
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
        escaped += special ? HexFilter(std::string_view(&c, 1)) : std::string(1, c);
    }
    return escaped;
}

std::string HexFilter(std::string_view value) {
    std::string escaped;
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        escaped += '\\';
        escaped += kHexDigits[byte >> 4];
        escaped += kHexDigits[byte & 0x0f];
    }
    return escaped;
}

std::string ParentDN(const std::string& distinguishedName) {
    for (std::size_t i = 0; i < distinguishedName.size(); ++i) {
        if (distinguishedName[i] == '\\') {
            ++i;
        } else if (distinguishedName[i] == ',') {
            return distinguishedName.substr(i + 1);
        }
    }
    return "";
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
