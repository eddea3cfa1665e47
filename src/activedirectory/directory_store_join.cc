#include <netdb.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "activedirectory/host_name.h"
#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "foundation/system_calls.h"
#include "hostmgmt/network.h"
#include "sysnet/dns_config.h"
#include "sysnet/hosts_file.h"
#include "sysnet/network_info.h"

namespace nimbrel::authentication {
namespace {

using OrbConfigStore::ConfigStoreException;

void RequireUsableCredentials(const Credentials& credentials) {
    if (credentials.userName == nullptr) throw InvalidCredentialsException("no username was specified");
    if (credentials.password == nullptr || *credentials.password == '\0') {
        throw InvalidCredentialsException(
            "empty or no password was specified; the account must have a non-empty password to join the host to "
            "domain");
    }
}

// "corp.test/Hosts/Sub" is the domain "corp.test" and the organizational unit "Hosts/Sub".
std::pair<std::string, std::string> SplitDomainArgument(const std::string& domain) {
    const std::size_t slash = domain.find('/');
    if (slash == std::string::npos) return {domain, ""};
    return {domain.substr(0, slash), domain.substr(slash + 1)};
}

void AddDNSSearchDomain(const std::string& domainName) {
    SysNet::Network::DnsConfigImpl dnsConfig("defaultTcpipStack");
    dnsConfig.AddUserSearchDomain(domainName);
    dnsConfig.SaveConfig();
}

void ThrowIfBlacklisted(const std::string& shortName) {
    static constexpr std::array<std::string_view, 3> kBlacklist = {"localhost", "linux", "hostname"};
    if (std::find(kBlacklist.begin(), kBlacklist.end(), shortName) != kBlacklist.end()) {
        throw InvalidHostNameException("hostname is in blacklist");
    }
}

}  // namespace

void ActiveDirectoryStore::JoinDomain(const std::string& domain, const Credentials& credentials,
                                      bool skipHostnameCheck) {
    RequireUsableCredentials(credentials);
    const auto [domainName, organizationalUnit] = SplitDomainArgument(domain);
    if (!skipHostnameCheck) SanitiseHostnameForDomain(domainName);
    _provider->JoinDomain(domainName, organizationalUnit, credentials);
    StoreDomainSettings(domainName, organizationalUnit, "");
}

void ActiveDirectoryStore::StoreDomainSettings(const std::string& domainName, const std::string& organizationalUnit,
                                               const std::string& proxyAddress) const {
    try {
        ActiveDirectoryConfigStore().StoreDomainInfo(domainName, organizationalUnit, proxyAddress);
    } catch (const ConfigStoreException& error) {
        // Leave again: membership and stored settings must agree.
        NimauthSyslog(LOG_ERR, "Failed to store domain details to Config Store: %s.Leaving Domain...", error.what());
        _provider->PartDomain();
        throw;
    }
}

void ActiveDirectoryStore::SanitiseHostnameForDomain(const std::string& domainName) const {
    SysNet::Network::HostsFile hostsFile;
    const SysNet::Network::NetworkInfoImpl networkInfo;

    const std::string hostName = ReadHostName();
    std::string fullName = ResolveFullName(hostName);
    const std::string shortName = FirstLabel(hostName);
    if (FirstLabel(fullName) != shortName) throw InvalidHostNameException("shortname does not match FQDN");

    const std::string expectedName = shortName + "." + domainName;
    if (fullName.find('.') == std::string::npos) fullName = expectedName;
    if (!EqualIgnoringCase(fullName, expectedName)) {
        NimauthSyslog(LOG_WARNING, "The fully qualified hostname %s does not match the expected value %s\n",
                      fullName.c_str(), expectedName.c_str());
        if (gethostbyname(domainName.c_str()) != nullptr) AddDNSSearchDomain(domainName);
    }

    // Only here, after the search list may have been extended: callers rely on the order of these effects.
    ThrowIfBlacklisted(shortName);

    const std::string address = networkInfo.GetManagementInterface()->GetIpConfig().GetIpv4Address().GetStringAddress();
    hostsFile.AddOrReplaceEntry(address, fullName, {shortName});
}

void ActiveDirectoryStore::PartDomain() {
    _provider->PartDomain();
    try {
        ActiveDirectoryConfigStore().RemoveDomainInfo();
    } catch (const ConfigStoreException& error) {
        // Only logged: the host has left, and joining again is not this call's to decide.
        NimauthSyslog(LOG_ERR, "Failed to remove domain details from Config Store: %s", error.what());
        throw;
    }
}

void ActiveDirectoryStore::PartDomain(const Credentials& credentials) { _provider->PartDomain(credentials); }

}  // namespace nimbrel::authentication
