// Organizational units: "Hosts/Sub" and "OU=Sub,OU=Hosts,DC=corp,DC=test" are the same unit.

#include <ldap.h>

#include <algorithm>
#include <memory>

#include "addirectory/ad_error.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kMaximumText = 2048;
constexpr std::size_t kMaximumUnitName = 64;
constexpr std::size_t kMaximumUnitDepth = 32;

[[noreturn]] void FailMalformed() { throw AdError(kStatusInvalidUnitName, "The organizational unit is malformed"); }

struct FreeDn {
    void operator()(LDAPRDN* name) const { ldap_dnfree(name); }
};
using ParsedDn = std::unique_ptr<LDAPRDN, FreeDn>;

std::string_view Text(const berval& value) { return {value.bv_val, value.bv_len}; }

// True if the text starts with one of the attribute types of a container's distinguished name.
bool LooksLikeDistinguishedName(std::string_view unit) {
    const auto equals = unit.find('=');
    if (equals == std::string_view::npos) {
        return false;
    }
    std::string type = LowerCase(unit.substr(0, equals));
    type.erase(std::remove(type.begin(), type.end(), ' '), type.end());
    return type == "ou" || type == "cn" || type == "dc";
}

// The domain that the last names spell; empty if there are none.
std::string DomainOf(LDAPRDN* names) {
    std::string domain;
    for (; *names; ++names) {
        const LDAPAVA& first = *(*names)[0];
        if (first.la_value.bv_len == 0) {
            FailMalformed();
        }
        if (SameName(Text(first.la_attr), "dc")) {
            domain += domain.empty() ? "" : ".";
            domain += Text(first.la_value);
        } else if (!domain.empty()) {
            FailMalformed();
        }
    }
    return domain;
}

std::string CheckDistinguishedName(const std::string& text, const std::string& domain) {
    LDAPDN names = nullptr;
    if (ldap_str2dn(text.c_str(), &names, LDAP_DN_FORMAT_LDAPV3) != LDAP_SUCCESS || !names) {
        FailMalformed();
    }
    const ParsedDn parsed(names);
    const std::string named = DomainOf(names);
    if (named.empty()) {
        return text + "," + DomainDN(domain);
    }
    if (!SameName(named, domain)) {
        throw AdError(kStatusFileNotFound, "The organizational unit is not in the domain");
    }
    return text;
}

std::vector<std::string> SplitPath(std::string_view path) {
    std::vector<std::string> names(1);
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '/') {
            names.emplace_back();
        } else if (path[i] == '\\' && i + 1 < path.size() && (path[i + 1] == '/' || path[i + 1] == '\\')) {
            names.back() += path[++i];
        } else {
            names.back() += path[i];
        }
    }
    return names;
}

std::string EscapeDnValue(const std::string& value) {
    static constexpr std::string_view kSpecial = ",+\"\\<>;=";
    std::string escaped;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const bool first = i == 0 && (value[i] == ' ' || value[i] == '#');
        const bool last = i + 1 == value.size() && value[i] == ' ';
        if (first || last || kSpecial.find(value[i]) != std::string_view::npos) {
            escaped += '\\';
        }
        escaped += value[i];
    }
    return escaped;
}

}  // namespace

std::string UnitDN(std::string_view unit, const std::string& domain) {
    if (unit.empty() || unit.size() > kMaximumText || !IsUtf8(unit) || HasControlCharacters(unit)) {
        FailMalformed();
    }
    if (LooksLikeDistinguishedName(unit)) {
        return CheckDistinguishedName(std::string(unit), domain);
    }
    const auto names = SplitPath(unit);
    const auto bad = [](const std::string& name) { return name.empty() || name.size() > kMaximumUnitName; };
    if (names.size() > kMaximumUnitDepth || std::any_of(names.begin(), names.end(), bad)) {
        FailMalformed();
    }
    std::string distinguishedName;
    for (std::size_t i = names.size(); i-- > 0;) {
        distinguishedName += "OU=" + EscapeDnValue(names[i]) + ",";
    }
    return distinguishedName + DomainDN(domain);
}

}  // namespace nimbrel::ad
