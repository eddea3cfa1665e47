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

// Each spelling that a directory takes for it.
bool IsDomainComponent(const LDAPAVA& part) {
    static constexpr std::string_view kNumber = "0.9.2342.19200300.100.1.25";
    const std::string_view name = Text(part.la_attr);
    return SameName(name, "dc") || SameName(name, "domainComponent") || name == kNumber;
}

// A name of several parts, "OU=a+CN=b", is no domain's.
void CheckParts(LDAPRDN name) {
    std::size_t count = 0;
    bool hasDomain = false;
    for (; name[count]; ++count) {
        if (name[count]->la_value.bv_len == 0) {
            FailMalformed();
        }
        hasDomain = hasDomain || IsDomainComponent(*name[count]);
    }
    if (hasDomain && count > 1) {
        FailMalformed();
    }
}

// The domain that the last names spell; empty if there are none.
std::string DomainOf(LDAPRDN* names) {
    std::string domain;
    for (; *names; ++names) {
        CheckParts(*names);
        const LDAPAVA& first = *(*names)[0];
        if (IsDomainComponent(first)) {
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
    if (kit::LooksLikeDistinguishedName(unit)) {
        return CheckDistinguishedName(std::string(unit), domain);
    }
    const auto names = kit::SplitUnitPath(unit);
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
