// Whether the host can join.

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "authentication/configuration.h"
#include "orbconfigstore/config_store.h"
#include "sysnet/network_info.h"
#include "tools/nimauthctl/checks/host_checks.h"
#include "tools/nimauthctl/checks/name_checks.h"
#include "tools/nimauthctl/checks/rights.h"
#include "tools/nimauthctl/checks/shared_checks.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kHost[] = "";  // the root of all paths
constexpr char kStatePath[] = "/var/lib/nimbrel";

Finding StoreRecord(CheckSubject&) {
    const authentication::AuthenticationConfiguration settings;
    return Pass("the active store is '" + settings["remote-authentication-store"] + "'");
}

// Needed for a join through the proxy only.
Finding ProxySettings(CheckSubject&) try {
    const authentication::APXProviderConfiguration settings;
    return Pass("the proxy plug-in is '" + settings["provider"] + "'");
} catch (const std::exception& error) {
    return Warn(error.what(), "needed to join through the authentication proxy only; correct the file for that");
}

Finding NotJoinedYet(CheckSubject& subject) {
    const auto answer = AskConfiguration(*OpenStore(subject.invocation), subject.invocation);
    if (answer.stale) {
        return Warn("the provider does not answer in time whether the host is joined",
                    "try again with a longer --timeout");
    }
    const std::string& domain = answer.value.DomainDNSName();
    if (domain.empty()) return Pass("the host is not joined");
    return Fail("the host is joined to " + domain + " already",
                "if it should be, nothing needs to be done; else leave first with 'nimauthctl leave'",
                ExitCode::OtherState);
}

Finding ShortName(CheckSubject& subject) { return CheckShortName(KernelHostName(), ResolvedHostName(subject)); }

Finding DefaultName(CheckSubject&) { return CheckDefaultName(KernelHostName()); }

Finding AccountName(CheckSubject&) { return CheckAccountName(KernelHostName()); }

Finding FullName(CheckSubject& subject) {
    return CheckFullName(KernelHostName(), ResolvedHostName(subject), subject.domain);
}

// Writing is tried by the right to it, not by doing it.
Finding Writable(const std::string& path, const std::string& what) {
    if (access(path.c_str(), W_OK) == 0) return Pass("'" + path + "' is writable");
    const int error = errno;
    return Fail("'" + path + "' is not writable: " + std::generic_category().message(error),
                "run as root; a file system that is mounted read-only has to take " + what, ExitCode::Permission);
}

Finding ConfigurationStore(CheckSubject&) {
    const bool isThere = access(kStatePath, F_OK) == 0;
    if (isThere) static_cast<void>(OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace));
    return Writable(isThere ? kStatePath : "/var/lib", "the domain settings");
}

Finding HostsFile(CheckSubject&) { return Writable("/etc/hosts", "the host's own name"); }

Finding SearchList(CheckSubject&) {
    const bool isThere = access("/etc/resolv.conf", F_OK) == 0;
    return Writable(isThere ? "/etc/resolv.conf" : "/etc", "the domain in the search list");
}

Finding ManagementInterface(CheckSubject&) {
    const auto interface = SysNet::Network::NetworkInfoImpl().GetManagementInterface();
    return Pass("'" + interface->GetName() + "' has " + interface->GetIpConfig().GetIpv4Address().GetStringAddress());
}

constexpr Check kJoinChecks[] = {
    {"user", Needs::Nothing, CheckUserIsRoot},
    {"settings files", Needs::Nothing, [](CheckSubject&) { return CheckSettingsFiles(kHost); }},
    {"state files", Needs::Nothing, [](CheckSubject&) { return CheckStateFiles(kHost); }},
    {"proxy files", Needs::Nothing, [](CheckSubject&) { return CheckProxyFiles(kHost); }},
    {"store", Needs::Nothing, StoreRecord},
    {"provider settings", Needs::Nothing, CheckProviderSettings},
    {"proxy settings", Needs::Nothing, ProxySettings},
    {"provider files", Needs::Nothing, [](CheckSubject&) { return CheckProviderFiles(kHost); }},
    {"provider", Needs::Settings, CheckProvider},
    {"membership", Needs::Provider, NotJoinedYet},
    {"host name", Needs::Nothing, CheckHostNameResolves},
    {"short name", Needs::Nothing, ShortName},
    {"default name", Needs::Nothing, DefaultName},
    {"account name", Needs::Nothing, AccountName},
    {"full name", Needs::Domain, FullName},
    {"domain name", Needs::Domain, CheckDomainResolves},
    {"domain controller", Needs::DomainAndProvider, CheckController},
    {"clock", Needs::Nothing, [](CheckSubject&) { return CheckClock(); }},
    {"management interface", Needs::Nothing, ManagementInterface},
    {"configuration store", Needs::Nothing, ConfigurationStore},
    {"hosts file", Needs::Nothing, HostsFile},
    {"DNS settings", Needs::Nothing, SearchList},
};

}  // namespace

std::span<const Check> JoinChecks() { return kJoinChecks; }

}  // namespace nimbrel::nimauthctl
