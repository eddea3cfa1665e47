#include "snippets.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "names.h"

namespace nimbrel::ad::logins {
namespace {

constexpr char kHeading[] =
    "# Written by nimauth and removed when the host leaves the domain; changes made here are lost. Settings of your "
    "own\n"
    "# go into a file whose name sorts behind this one, 70-local.conf say (root's, mode 0600), under the same "
    "section.\n";

// The services where SSSD 2.8 accepts a smart card without being told. The option that names others changes this set.
constexpr std::array<std::string_view, 9> kBuiltInSmartCardServices = {
    "login", "su", "su-l", "gdm-smartcard", "gdm-password", "kdm", "sudo", "sudo-i", "gnome-screensaver"};

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const auto& text : texts) joined += (joined.empty() ? "" : ", ") + text;
    return joined;
}

std::string YesNo(bool value) { return value ? "true" : "false"; }

// How the host speaks to the domain or forest `dnsName`: always as the same machine account, with the same key.
std::string DomainSection(const DomainLogIns& domain, const std::string& dnsName, const std::string& realm,
                          bool fullNames, const LogInOptions& options) {
    return "[domain/" + dnsName +
           "]\n"
           "enabled = true\n"
           "id_provider = ad\n"
           "access_provider = " +
           options.access + "\nad_domain = " + dnsName + "\nkrb5_realm = " + realm +
           "\nad_hostname = " + domain.hostName + "\nkrb5_keytab = " + domain.keytab +
           "\nldap_sasl_authid = " + domain.machineAccount + '@' + domain.realm +
           "\nldap_id_mapping = true\nuse_fully_qualified_names = " + YesNo(fullNames) +
           "\nfallback_homedir = " + options.home + "\ndefault_shell = " + options.shell +
           "\n"
           "cache_credentials = true\n"
           "dyndns_update = false\n"
           "ad_gpo_access_control = disabled\n";
}

}  // namespace

std::string DomainSnippet(const DomainLogIns& domain, const LogInOptions& options,
                          const std::vector<std::string>& services) {
    std::string text = kHeading;
    if (!services.empty()) text += "[sssd]\nservices = " + Joined(services) + "\n\n";
    text += DomainSection(domain, domain.dnsName, domain.realm, options.fullNames, options);
    for (const auto& forest : domain.trustedForests) {
        // Two forests may have a user of the same name.
        text += '\n' + DomainSection(domain, forest, UpperCase(forest), true, options);
    }
    return text;
}

std::string ControllersSnippet(const DomainLogIns& domain, const std::vector<std::string>& controllers) {
    return kHeading + std::string("[domain/") + domain.dnsName + "]\nad_server = " + Joined(controllers) + ", _srv_\n";
}

std::string SmartCardSnippet(const std::vector<std::string>& services) {
    const std::string section = kHeading + std::string("[pam]\n");
    if (services.empty()) return section + "pam_cert_auth = false\n";
    std::vector<std::string> changes;
    changes.reserve(services.size());
    for (const auto& service : services) changes.push_back('+' + service);
    for (const auto& service : kBuiltInSmartCardServices) {
        if (std::find(services.begin(), services.end(), service) == services.end()) {
            changes.push_back('-' + std::string(service));
        }
    }
    return section + "pam_cert_auth = true\npam_p11_allowed_services = " + Joined(changes) + '\n';
}

}  // namespace nimbrel::ad::logins
