#include <cstdio>
#include <memory>

#include "activedirectory/host_name.h"
#include "activedirectory/thumbprint.h"
#include "authentication/configuration.h"
#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "authentication/proxy.h"
#include "foundation/system_calls.h"
#include "hostmgmt/advanced_options.h"
#include "hostmgmt/network.h"
#include "internal/no_cancellation.h"

namespace nimbrel::authentication {
namespace {

using HostMgmt::Lib::HostMgmtException;
using OrbConfigStore::ConfigStoreException;

void RequireIPv4Address(const std::string& address) {
    if (HostMgmt::Network::Ipv4Address::IsValidAddress(address)) return;
    throw InvalidIPAddressException("IPv4 address '" + address + "' cannot be parsed as an IP address");
}

std::int64_t ReadVerifyOption() {
    const auto root = HostMgmt::HostFactory::GetHost()->GetAdvancedOptions()->GetRootBranch();
    if (root == nullptr) throw HostMgmtException("Unable to get root option branch");
    const auto user = root->GetBranch("UserVars");
    if (user == nullptr) throw HostMgmtException("Unable to get user from root");
    const auto option = std::dynamic_pointer_cast<HostMgmt::Adv::AdvancedIntegerOption>(
        user->GetOption("ActiveDirectoryVerifyAPXCertificate"));
    if (option == nullptr) throw HostMgmtException("Unable to get the user option");
    return option->GetValue();
}

struct CloseFile {
    void operator()(FILE* file) const {
        const internal::NoCancellation noCancellation;
        static_cast<void>(std::fclose(file));
    }
};

// What can be read of it: a text that was cut holds no whole certificate.
std::string ReadCertificateFile(const std::string& path) {
    const std::unique_ptr<FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    if (file == nullptr) throw FileNotFoundException();
    std::string text;
    char buffer[4096];
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;) {
        text.append(buffer, count);
    }
    return text;
}

bool MustVerifyCertificate() {
    std::int64_t value = 0;
    try {
        value = ReadVerifyOption();
    } catch (const HostMgmtException&) {
        throw InvalidVerifyAPXCertificateOptionException(
            "Unable to get advanced option UserVars.ActiveDirectoryVerifyAPXCertificate");
    }
    if (value != 0 && value != 1) {
        throw InvalidVerifyAPXCertificateOptionException(
            "Invalid value for UserVars.ActiveDirectoryVerifyAPXCertificate");
    }
    return value == 1;
}

std::string ReadProxyProviderName() {
    std::string name;
    try {
        const APXProviderConfiguration configuration;
        name = configuration["provider"];
    } catch (const IOError&) {
        throw InvalidAPXProxyProviderException("(none installed)");
    }
    if (name.empty()) throw InvalidAPXProxyProviderException("(unset)");
    return name;
}

// What the host trusts the proxy by; both empty where nothing is verified.
struct TrustMaterial {
    std::string thumbprint;
    std::string certificate;
};

TrustMaterial ReadTrustMaterial() {
    try {
        ActiveDirectoryConfigStore store;
        std::string thumbprint = store.GetThumbprint();
        return {std::move(thumbprint), store.GetCertificate()};
    } catch (const std::exception& error) {
        NimauthSyslog(LOG_ERR, "Unable to fetch thumbprint from Config Store: %s", error.what());
        throw InvalidThumbprintStoreException("auth_proxy_certificate");
    }
}

// One call of the service for each name, as proxies in the field expect it.
APX::DirectoryDomainInfo AskForDomain(APXProxy& proxy) {
    APX::DirectoryDomainInfo domain;
    domain.netbiosName = proxy.GetNetBIOSDomainName();
    domain.dnsName = proxy.GetDNSDomainName();
    domain.sid = proxy.GetDomainSID();
    return domain;
}

}  // namespace

void ActiveDirectoryStore::JoinDomainWithAPX(const std::string& proxyAddress, const std::string& organizationalUnit,
                                             bool skipHostnameCheck) {
    RequireIPv4Address(proxyAddress);
    const bool verify = MustVerifyCertificate();
    const std::string hostName = ReadHostName();
    const std::string fullName = ResolveFullName(hostName);
    const std::string provider = ReadProxyProviderName();
    const TrustMaterial trust = verify ? ReadTrustMaterial() : TrustMaterial();

    APXProxy proxy(provider, proxyAddress, verify, trust.thumbprint, trust.certificate);
    if (!skipHostnameCheck) SanitiseHostnameForDomain(proxy.GetDNSDomainName());

    const ComputerPrincipalInfo principal = proxy.CreateMachineAccount(
        fullName, organizationalUnit.empty() ? proxy.GetDefaultComputerContainer() : organizationalUnit);
    const APX::DirectoryDomainInfo domain = AskForDomain(proxy);
    const APX::MachineAccountInfo account = {FirstLabel(hostName), domain.dnsName, "", principal.principalField2,
                                             principal.principalField3};
    _provider->JoinDomainWithMachineAccount(domain, account);
    StoreDomainSettings(domain.dnsName, organizationalUnit, proxyAddress);
}

std::string ActiveDirectoryStore::GetDomainForAPXService(const std::string& proxyAddress) {
    RequireIPv4Address(proxyAddress);
    return APXProxy(ReadProxyProviderName(), proxyAddress, false, "", "").GetDNSDomainName();
}

void ActiveDirectoryStore::ImportCertificateForAPX(const std::string& certificate) {
    const std::string thumbprint = ThumbprintOfPEM(certificate);
    try {
        ActiveDirectoryConfigStore().StoreAuthProxyCertInfo(thumbprint, certificate);
    } catch (const ConfigStoreException& error) {
        NimauthSyslog(LOG_ERR, "Failed to store thumbprint to Config Store: %s", error.what());
        throw;
    }
}

// The second argument is accepted for callers that have one, and not used.
void ActiveDirectoryStore::ImportCertificateForAPX(const std::string& certificateFile, const std::string& /*ignored*/) {
    ImportCertificateForAPX(ReadCertificateFile(certificateFile));
}

}  // namespace nimbrel::authentication
