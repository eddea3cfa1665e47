// Why users of the domain cannot log in on a joined host.

#include <iterator>
#include <string>

#include "authentication/configuration.h"
#include "tools/nimauthctl/checks/host_checks.h"
#include "tools/nimauthctl/checks/name_checks.h"
#include "tools/nimauthctl/checks/rights.h"
#include "tools/nimauthctl/checks/shared_checks.h"
#include "tools/nimauthctl/trust_words.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kHost[] = "";  // the root of all paths
constexpr char kDirectoryStore[] = "Active Directory";

Finding CheckStore(CheckSubject&) {
    const authentication::AuthenticationConfiguration record;
    const std::string store = record["remote-authentication-store"];
    if (store == kDirectoryStore) return Pass("the active store is '" + store + "'");
    return Fail("the active store is '" + store + "'", "nimauthctl store set \"Active Directory\"",
                ExitCode::OtherState);
}

Finding CheckMembership(CheckSubject& subject) {
    subject.store = OpenStore(subject.invocation);
    const auto answer = AskConfiguration(*subject.store, subject.invocation);
    if (answer.stale) {
        return Fail("the provider does not answer in time whether the host is joined",
                    "try again with a longer --timeout", ExitCode::Stale);
    }
    subject.domain = answer.value.DomainDNSName();
    subject.machineAccount = answer.value.MachineAccountDN();
    if (subject.domain.empty()) {
        return Fail("the host is not joined", "nimauthctl join DOMAIN -U USER", ExitCode::NotJoined);
    }
    return Pass("the host is joined to " + subject.domain);
}

Finding CheckMachineAccount(CheckSubject& subject) { return CheckHostName(KernelHostName(), subject.machineAccount); }

struct TrustRemedy {
    std::int32_t state;
    const char* remedy;
    ExitCode exitCode;
};

// The states that the providers of this project share; other providers have numbers of their own.
constexpr TrustRemedy kTrustRemedies[] = {
    {3, "leave the domain and join it again", ExitCode::Authentication},
    {4, "have the domain's administrator enable the computer account", ExitCode::Authentication},
    {5, "leave the domain and join it again", ExitCode::Authentication},
    {7, "nimauthctl join DOMAIN -U USER", ExitCode::NotJoined},
    {8, "see whether a domain controller runs and its ports can be reached", ExitCode::Network},
    {9, "run this as root; the system log tells which file cannot be read", ExitCode::Permission},
    {10, "set the host's clock right, and run a time service", ExitCode::Authentication},
};

bool HasKnownStates(const std::string& provider) { return provider == "ad" || provider == "embedded"; }

Finding CheckTrust(CheckSubject& subject) {
    const auto answer =
        AskTraced(subject.invocation, "the trust state", [&] { return subject.store->GetDomainTrustState(); });
    if (answer.stale) {
        return Fail("the domain does not answer in time", "see whether a domain controller runs and can be reached",
                    ExitCode::Stale);
    }
    const std::string found = std::to_string(answer.value) + ", " + TrustStateWords(subject.provider, answer.value);
    if (!HasKnownStates(subject.provider)) return Warn(found, "look it up in the provider's documentation");
    if (answer.value == 1) return Pass(found);
    for (const TrustRemedy& entry : kTrustRemedies) {
        if (entry.state == answer.value) return Fail(found, entry.remedy, entry.exitCode);
    }
    return Fail(found, "look it up in the provider's documentation");
}

constexpr Check kJoinedChecks[] = {
    {"user", Needs::Nothing, CheckUserIsRoot},
    {"settings files", Needs::Nothing, [](CheckSubject&) { return CheckSettingsFiles(kHost); }},
    {"state files", Needs::Nothing, [](CheckSubject&) { return CheckStateFiles(kHost); }},
    {"proxy files", Needs::Nothing, [](CheckSubject&) { return CheckProxyFiles(kHost); }},
    {"store", Needs::Nothing, CheckStore},
    {"provider settings", Needs::Nothing, CheckProviderSettings},
    {"provider files", Needs::Nothing, [](CheckSubject&) { return CheckProviderFiles(kHost); }},
    {"provider", Needs::Settings, CheckProvider},
    {"membership", Needs::Provider, CheckMembership},
    {"host name", Needs::Nothing, CheckHostNameResolves},
    {"machine account", Needs::Domain, CheckMachineAccount},
    {"keytab", Needs::Sssd, [](CheckSubject& subject) { return CheckKeytab(kHost, subject.domain); }},
    {"domain name", Needs::Domain, CheckDomainResolves},
    {"domain controller", Needs::DomainAndProvider, CheckController},
    {"trust state", Needs::DomainAndProvider, CheckTrust},
    {"clock", Needs::Nothing, [](CheckSubject&) { return CheckClock(); }},
    {"sssd installed", Needs::Sssd, [](CheckSubject&) { return CheckSssdInstalled(kHost); }},
    {"sssd configuration", Needs::Sssd,
     [](CheckSubject& subject) { return CheckSssdConfiguration(kHost, subject.domain); }},
    {"sssd runs", Needs::Sssd, [](CheckSubject&) { return CheckSssdRuns(kHost); }},
    {"name service", Needs::Provider,
     [](CheckSubject& subject) { return CheckNameService(kHost, subject.nssService); }},
    {"pam", Needs::Provider, [](CheckSubject& subject) { return CheckPam(kHost, subject.pamModule); }},
};

}  // namespace

std::span<const Check> JoinedChecks() { return kJoinedChecks; }

}  // namespace nimbrel::nimauthctl
