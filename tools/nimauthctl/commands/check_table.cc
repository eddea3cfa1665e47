#include "tools/nimauthctl/commands/check_table.h"

#include <netdb.h>
#include <sys/timex.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "authentication/configuration.h"
#include "authentication/provider.h"
#include "orbconfigstore/config_store.h"
#include "sysnet/network_info.h"
#include "tools/nimauthctl/commands/ask_within.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {

Finding Pass(std::string text) { return {Verdict::Pass, std::move(text)}; }

Finding Warn(std::string text, std::string remedy) { return {Verdict::Warn, std::move(text), std::move(remedy)}; }

Finding Fail(ExitCode exitCode, std::string text, std::string remedy) {
    return {Verdict::Fail, std::move(text), std::move(remedy), exitCode};
}

namespace {

constexpr char kStatePath[] = "/var/lib/nimbrel";

Finding Root(const CheckTarget&) {
    if (geteuid() == 0) return Pass("run by root");
    return Fail(ExitCode::Permission, "not run by root, as a join must be; some findings may be wrong for this reason",
                "run it again as root, for example with sudo");
}

Finding StoreRecord(const CheckTarget&) {
    const authentication::AuthenticationConfiguration settings;
    return Pass("the active store is '" + settings["remote-authentication-store"] + "'");
}

Finding ProviderSettings(const CheckTarget&) {
    const authentication::ProviderConfiguration settings;
    return Pass("the provider is '" + settings["provider"] + "'");
}

// Needed for a join through the proxy only.
Finding ProxySettings(const CheckTarget&) try {
    const authentication::APXProviderConfiguration settings;
    return Pass("the proxy plug-in is '" + settings["provider"] + "'");
} catch (const std::exception& error) {
    return Warn(error.what(), "needed to join through the authentication proxy only; correct the file for that");
}

Finding Provider(const CheckTarget&) {
    const authentication::ProviderConfiguration settings;
    const authentication::ActiveDirectoryProvider provider(settings["provider"]);
    return Pass("it loads, API version " + std::to_string(provider.GetAPIVersion()) + ", log-in modules " +
                provider.PAMModule() + " and " + provider.NSSModule());
}

Finding Membership(const CheckTarget& target) {
    const auto answer = AskConfiguration(*OpenStore(target.invocation), target.invocation);
    if (answer.stale) {
        return Warn("the provider does not answer in time whether the host is joined",
                    "try again with a longer --timeout");
    }
    const std::string& domain = answer.value.DomainDNSName();
    if (domain.empty()) return Pass("the host is not joined");
    return Fail(ExitCode::OtherState, "the host is joined to " + domain + " already",
                "nothing needs to be done, or leave first with 'nimauthctl leave'");
}

Finding HostNameResolves(const CheckTarget& target) {
    return Pass("'" + KernelHostName() + "' resolves to '" + ResolvedHostName(target) + "'");
}

Finding ShortName(const CheckTarget& target) { return CheckShortName(KernelHostName(), ResolvedHostName(target)); }

Finding DefaultName(const CheckTarget&) { return CheckDefaultName(KernelHostName()); }

Finding AccountName(const CheckTarget&) { return CheckAccountName(KernelHostName()); }

Finding FullName(const CheckTarget& target) {
    return CheckFullName(KernelHostName(), ResolvedHostName(target), target.domain);
}

Finding DomainResolves(const CheckTarget& target) {
    const auto resolves = AskWithinTraced(target.invocation, "the domain's address", [domain = target.domain] {
        addrinfo* found = nullptr;
        const int error = getaddrinfo(domain.c_str(), nullptr, nullptr, &found);
        if (error == 0) freeaddrinfo(found);
        return error == 0;
    });
    if (resolves.value_or(false)) return Pass("'" + target.domain + "' resolves");
    return Warn("'" + target.domain + "' does not resolve" + (resolves ? "" : " in time"),
                "check the host's DNS servers in /etc/resolv.conf; a real domain needs them");
}

Finding Controller(const CheckTarget& target) {
    const StorePointer store = OpenStore(target.invocation);
    const auto controller = AskWithinTraced(target.invocation, "a domain controller", [store, domain = target.domain] {
        return store->GetDomainControllerForDomain(domain);
    });
    if (!controller) {
        return Fail(ExitCode::Network, "the provider does not find a controller in time",
                    "check the network to the domain, or try again with a longer --timeout");
    }
    if (controller->empty()) return Warn("the provider cannot tell", "try 'nimauthctl join'");
    return Pass("'" + *controller + "' answers");
}

// The provider has no operation that tells a controller's time; a host whose clock nobody sets is told all the same.
Finding Clock(const CheckTarget&) {
    timex clock{};
    const int state = adjtimex(&clock);
    if (state != -1 && state != TIME_ERROR && (clock.status & STA_UNSYNC) == 0) {
        return Pass("kept by a time service; the largest error is " + std::to_string(clock.maxerror / 1000) + " ms");
    }
    return Warn("no time service keeps it; the provider cannot tell how far the domain's is away",
                "set it by NTP from the domain's time source: more than five minutes apart, a log-on is refused");
}

// Writing is tried by the right to it, not by doing it.
Finding Writable(const std::string& path, const std::string& what) {
    if (access(path.c_str(), W_OK) == 0) return Pass("'" + path + "' is writable");
    const int error = errno;
    return Fail(ExitCode::Permission, "'" + path + "' is not writable: " + std::generic_category().message(error),
                "run as root; a file system that is mounted read-only has to take " + what);
}

Finding ConfigurationStore(const CheckTarget&) {
    const bool isThere = access(kStatePath, F_OK) == 0;
    if (isThere) static_cast<void>(OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace));
    return Writable(isThere ? kStatePath : "/var/lib", "the domain settings");
}

Finding HostsFile(const CheckTarget&) { return Writable("/etc/hosts", "the host's own name"); }

Finding SearchList(const CheckTarget&) {
    const bool isThere = access("/etc/resolv.conf", F_OK) == 0;
    return Writable(isThere ? "/etc/resolv.conf" : "/etc", "the domain in the search list");
}

Finding ManagementInterface(const CheckTarget&) {
    const auto interface = SysNet::Network::NetworkInfoImpl().GetManagementInterface();
    return Pass("'" + interface->GetName() + "' has " + interface->GetIpConfig().GetIpv4Address().GetStringAddress());
}

constexpr Check kPreflight[] = {
    {"user", false, Root},
    {"store record", false, StoreRecord},
    {"provider settings", false, ProviderSettings},
    {"proxy settings", false, ProxySettings},
    {"provider", false, Provider},
    {"membership", false, Membership},
    {"host name", false, HostNameResolves},
    {"short name", false, ShortName},
    {"default name", false, DefaultName},
    {"account name", false, AccountName},
    {"full name", true, FullName},
    {"domain name", true, DomainResolves},
    {"domain controller", true, Controller},
    {"clock", false, Clock},
    {"management interface", false, ManagementInterface},
    {"configuration store", false, ConfigurationStore},
    {"hosts file", false, HostsFile},
    {"DNS settings", false, SearchList},
};

}  // namespace

std::span<const Check> PreflightChecks() { return kPreflight; }

}  // namespace nimbrel::nimauthctl
