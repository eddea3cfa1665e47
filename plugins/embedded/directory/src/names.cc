#include "names.h"

#include <algorithm>
#include <cstdint>

#include "embeddeddirectory/directory_error.h"

namespace nimbrel::embedded {
namespace {

constexpr std::size_t kMaximumNetbiosName = 15;
constexpr std::size_t kMaximumUserName = 64;
constexpr std::size_t kMaximumQualifiedName = 512;

}  // namespace

bool IsPlainText(std::string_view text, std::size_t maximumBytes) {
    return !text.empty() && text.size() <= maximumBytes && !kit::HasControlCharacters(text) && IsUtf8(text);
}

std::string DnsName(std::string_view name) {
    name = kit::WithoutFinalDot(name);
    if (!kit::IsDnsName(name)) {
        throw DirectoryError(kStatusInvalidDomainName, "The domain name is malformed");
    }
    return LowerCase(name);
}

std::string NetbiosName(std::string_view name) {
    if (name.size() > kMaximumNetbiosName || !kit::IsLabel(name)) {
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
    name = kit::BareComputerName(name);
    if (!kit::IsComputerName(name)) {
        throw DirectoryError(kStatusInvalidComputerName,
                             "The computer name is malformed: it takes 1 to 15 letters, digits and hyphens");
    }
    return UpperCase(name);
}

std::string ControllerName(std::string_view name) {
    name = kit::WithoutFinalDot(name);
    if (!kit::IsDnsName(name)) {
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
        domain = kit::WithoutFinalDot(text.substr(at + 1));
        name = text.substr(0, at);
    } else {
        return {UserName(name), ""};
    }
    if (!kit::IsDnsName(domain)) {
        throw DirectoryError(kStatusInvalidAccountName, "The user name's domain is malformed");
    }
    return {UserName(name), std::string(domain)};
}

}  // namespace nimbrel::embedded
