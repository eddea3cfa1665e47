#include "names.h"

#include <algorithm>
#include <cstdint>

#include "embeddeddirectory/directory_error.h"

namespace nimbrel::embedded {
namespace {

constexpr std::size_t kMaximumDnsName = 253;
constexpr std::size_t kMaximumLabel = 63;
constexpr std::size_t kMaximumNetbiosName = 15;
constexpr std::size_t kMaximumUserName = 64;
constexpr std::size_t kMaximumQualifiedName = 512;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLetterOrDigit(char c) { return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z'); }
bool IsLabelCharacter(char c) { return IsLetterOrDigit(c) || c == '-' || c == '_'; }

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

// The bytes that follow the first byte of a sequence, or -1; `minimum` is the least code point of that length.
int ContinuationBytes(unsigned char first, std::uint32_t& codePoint, std::uint32_t& minimum) {
    if (first < 0x80) {
        codePoint = first;
        minimum = 0;
        return 0;
    }
    if ((first & 0xe0) == 0xc0) {
        codePoint = first & 0x1fU;
        minimum = 0x80;
        return 1;
    }
    if ((first & 0xf0) == 0xe0) {
        codePoint = first & 0x0fU;
        minimum = 0x800;
        return 2;
    }
    if ((first & 0xf8) == 0xf0) {
        codePoint = first & 0x07U;
        minimum = 0x10000;
        return 3;
    }
    return -1;
}

bool IsScalarValue(std::uint32_t codePoint) {
    return codePoint <= 0x10ffff && (codePoint < 0xd800 || codePoint > 0xdfff);
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

}  // namespace

bool IsUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t codePoint = 0;
        std::uint32_t minimum = 0;
        int following = ContinuationBytes(static_cast<unsigned char>(text[i]), codePoint, minimum);
        if (following < 0) {
            return false;
        }
        for (; following > 0; --following) {
            if (++i == text.size() || (static_cast<unsigned char>(text[i]) & 0xc0) != 0x80) {
                return false;
            }
            codePoint = codePoint << 6 | (static_cast<unsigned char>(text[i]) & 0x3fU);
        }
        if (codePoint < minimum || !IsScalarValue(codePoint)) {
            return false;
        }
    }
    return true;
}

bool IsPlainText(std::string_view text, std::size_t maximumBytes) {
    return !text.empty() && text.size() <= maximumBytes && std::none_of(text.begin(), text.end(), IsControl) &&
           IsUtf8(text);
}

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

bool SameName(std::string_view left, std::string_view right) { return LowerCase(left) == LowerCase(right); }

std::string DnsName(std::string_view name) {
    name = WithoutFinalDot(name);
    if (!IsDnsName(name)) {
        throw DirectoryError(kStatusInvalidDomainName, "The domain name is malformed");
    }
    return LowerCase(name);
}

std::string NetbiosName(std::string_view name) {
    if (name.size() > kMaximumNetbiosName || !IsLabel(name)) {
        throw DirectoryError(kStatusInvalidDomainName, "The NetBIOS name is malformed");
    }
    return UpperCase(name);
}

std::string DefaultNetbiosName(const std::string& dnsName) {
    std::string name = UpperCase(dnsName.substr(0, std::min(dnsName.find('.'), kMaximumNetbiosName)));
    name.erase(name.find_last_not_of('-') + 1);
    return name;
}

std::string ComputerName(std::string_view name) {
    name = name.substr(0, name.find('.'));
    if (!name.empty() && name.back() == '$') {
        name.remove_suffix(1);
    }
    const bool wellFormed = name.size() <= kMaximumNetbiosName && IsLabel(name) &&
                            name.find('_') == std::string_view::npos && !std::all_of(name.begin(), name.end(), IsDigit);
    if (!wellFormed) {
        throw DirectoryError(kStatusInvalidComputerName,
                             "The computer name is malformed: it takes 1 to 15 letters, digits and hyphens");
    }
    return UpperCase(name);
}

std::string ControllerName(std::string_view name) {
    name = WithoutFinalDot(name);
    if (!IsDnsName(name)) {
        throw DirectoryError(kStatusInvalidComputerName, "The domain controller's name is malformed");
    }
    return LowerCase(name);
}

std::string UserName(std::string_view name) {
    if (!IsPlainText(name, kMaximumUserName) || name.find_first_of("\"/\\[]:;|=,+*?<>@") != std::string_view::npos) {
        throw DirectoryError(kStatusInvalidAccountName, "The user name is malformed");
    }
    return std::string(name);
}

QualifiedName SplitUserName(std::string_view text) {
    if (text.size() > kMaximumQualifiedName) {
        throw DirectoryError(kStatusInvalidAccountName, "The user name is too long");
    }
    const auto backslash = text.find('\\');
    const auto at = text.rfind('@');
    std::string_view domain;
    std::string_view name = text;
    if (backslash != std::string_view::npos) {
        domain = text.substr(0, backslash);
        name = text.substr(backslash + 1);
    } else if (at != std::string_view::npos) {
        domain = WithoutFinalDot(text.substr(at + 1));
        name = text.substr(0, at);
    } else {
        return {UserName(name), ""};
    }
    if (!IsDnsName(domain)) {
        throw DirectoryError(kStatusInvalidAccountName, "The user name's domain is malformed");
    }
    return {UserName(name), std::string(domain)};
}

std::string HostPrincipalName(const std::string& computer, const std::string& domainDnsName) {
    return "host/" + LowerCase(computer) + "." + domainDnsName + "@" + UpperCase(domainDnsName);
}

}  // namespace nimbrel::embedded
