#include "names.h"

#include <arpa/inet.h>
#include <syslog.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace nimbrel::ad::logins {
namespace {

constexpr std::size_t kMaximumDnsName = 253;
constexpr std::size_t kMaximumLabel = 63;
constexpr std::ptrdiff_t kMaximumNetbiosName = 15;  // characters
constexpr std::size_t kMaximumNetbiosBytes = 60;
constexpr std::size_t kMaximumAccount = 20;
constexpr std::size_t kMaximumService = 64;
constexpr std::size_t kMaximumPath = 1024;
constexpr std::size_t kMaximumEntries = 256;

// Without the locale, which belongs to the process.
bool IsLetterOrDigit(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }
bool BeginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }  // of UTF-8
bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

bool HasOnly(std::string_view text, std::string_view besides) {
    return std::all_of(text.begin(), text.end(),
                       [&](char c) { return IsLetterOrDigit(c) || besides.find(c) != std::string_view::npos; });
}

bool IsLabel(std::string_view label) {
    return !label.empty() && label.size() <= kMaximumLabel && IsLetterOrDigit(label.front()) && HasOnly(label, "-_");
}

// Those of version 4 are spelled as DNS names are.
bool IsLongAddress(const std::string& text) {
    in6_addr binary = {};
    return HasOnly(text, ":.") && inet_pton(AF_INET6, text.c_str(), &binary) == 1;
}

// The offender is shown without what makes it dangerous to show.
std::string Shown(std::string_view text) {
    std::string shown(text.substr(0, kMaximumDnsName));
    std::replace_if(shown.begin(), shown.end(), IsControl, '?');
    return shown;
}

void Require(bool wellFormed, const std::string& what, std::string_view name) {
    if (!wellFormed) {
        throw kit::StatusError(kit::status::kStatusInvalidParameter,
                               "The " + what + " '" + Shown(name) + "' is malformed");
    }
}

void RequireCount(std::size_t count) {
    if (count > kMaximumEntries) {
        throw kit::StatusError(kit::status::kStatusInvalidParameter, "The list has more than 256 entries");
    }
}

}  // namespace

bool IsDnsName(std::string_view name) {
    if (name.size() > kMaximumDnsName) return false;
    for (;;) {
        const auto dot = name.find('.');
        if (!IsLabel(name.substr(0, dot))) return false;
        if (dot == std::string_view::npos) return true;
        name.remove_prefix(dot + 1);
    }
}

bool IsNetbiosName(std::string_view name) {
    const auto length = std::count_if(name.begin(), name.end(), BeginsCharacter);
    return length > 0 && length <= kMaximumNetbiosName && name.size() <= kMaximumNetbiosBytes &&
           std::none_of(name.begin(), name.end(), IsControl) &&
           name.find_first_of(" \"*+,/:;<=>?[\\]|") == std::string_view::npos;
}

bool IsServiceName(std::string_view name) {
    return !name.empty() && name.size() <= kMaximumService && (IsLetterOrDigit(name.front()) || name.front() == '_') &&
           HasOnly(name, "._-");
}

bool IsMachineAccount(std::string_view name) {
    return name.size() >= 2 && name.size() <= kMaximumAccount && name.back() == '$' && IsLetterOrDigit(name.front()) &&
           HasOnly(name.substr(0, name.size() - 1), "-_");
}

bool IsPath(std::string_view path) {
    return !path.empty() && path.size() <= kMaximumPath && path.front() == '/' &&
           std::none_of(path.begin(), path.end(), IsControl) && path.back() != ' ';
}

void CheckDomain(const DomainLogIns& domain) {
    Require(IsDnsName(domain.dnsName), "domain name", domain.dnsName);
    Require(IsDnsName(domain.realm), "realm", domain.realm);
    Require(IsNetbiosName(domain.netbiosName), "domain's NetBIOS name", domain.netbiosName);
    Require(IsDnsName(domain.hostName), "host name", domain.hostName);
    Require(IsMachineAccount(domain.machineAccount), "machine account", domain.machineAccount);
    Require(IsPath(domain.keytab), "keytab's path", domain.keytab);
}

std::vector<std::string> UsableForests(const std::vector<std::string>& forests) {
    std::vector<std::string> usable;
    for (const auto& forest : forests) {
        if (IsDnsName(forest) && usable.size() < kMaximumEntries) {
            usable.push_back(forest);
        } else {
            syslog(LOG_WARNING, "Users of the trusted forest '%s' cannot log in on this host: %s",
                   Shown(forest).c_str(),
                   IsDnsName(forest) ? "there are more than 256 forests" : "SSSD takes no such name");
        }
    }
    return usable;
}

void CheckOptions(const LogInOptions& options) {
    Require(IsPath(options.shell), "log-in shell", options.shell);
    Require(IsPath(options.home), "home directory", options.home);
    Require(options.access == "ad" || options.access == "simple" || options.access == "deny", "kind of access",
            options.access);
}

void CheckControllers(const std::vector<std::string>& controllers) {
    RequireCount(controllers.size());
    for (const auto& controller : controllers) {
        Require(IsDnsName(controller) || IsLongAddress(controller), "domain controller's name", controller);
    }
}

void CheckServices(const std::vector<std::string>& services) {
    RequireCount(services.size());
    for (const auto& service : services) Require(IsServiceName(service), "service name", service);
}

}  // namespace nimbrel::ad::logins
