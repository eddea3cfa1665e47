// nimauthctl check

#include <unistd.h>

#include <climits>
#include <memory>
#include <string>

#include "authentication/configuration.h"
#include "authentication/provider.h"
#include "tools/nimauthctl/checks/finding.h"
#include "tools/nimauthctl/checks/host_checks.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"
#include "tools/nimauthctl/trust_words.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kHost[] = "";  // the root of all paths
constexpr char kSssdService[] = "sss";
constexpr char kDirectoryStore[] = "Active Directory";

// What the checks learn one after the other.
struct Learned {
    const Invocation& invocation;
    std::string provider = {};
    std::string pamModule = {};
    std::string nssService = {};
    StorePointer store = {};
    std::string domain = {};
    std::string machineAccount = {};
};

// What must have been learned before a check makes sense.
enum class Needs { Nothing, Provider, Membership, Sssd };

struct Check {
    const char* name;
    Needs needs;
    Finding (*run)(Learned& learned);
};

Finding CheckStore(Learned&) {
    const authentication::AuthenticationConfiguration record;
    const std::string store = record["remote-authentication-store"];
    if (store == kDirectoryStore) return Pass(store);
    return Fail("the active store is '" + store + "'", "nimauthctl store set \"Active Directory\"",
                ExitCode::OtherState);
}

Finding CheckProvider(Learned& learned) {
    const authentication::ProviderConfiguration settings;
    const std::string name = settings["provider"];
    const authentication::ActiveDirectoryProvider provider(name);
    learned.provider = name;
    learned.pamModule = provider.PAMModule();
    learned.nssService = provider.NSSModule();
    return Pass(name + ": " + learned.pamModule + ", " + learned.nssService);
}

Finding CheckMembership(Learned& learned) {
    learned.store = OpenStore(learned.invocation);
    const auto answer = AskConfiguration(*learned.store, learned.invocation);
    if (answer.stale) {
        return Fail("the provider did not answer in time", "try again with a longer --timeout", ExitCode::Stale);
    }
    learned.domain = answer.value.DomainDNSName();
    learned.machineAccount = answer.value.MachineAccountDN();
    if (learned.domain.empty()) {
        return Fail("the host is not joined", "nimauthctl join DOMAIN -U USER", ExitCode::NotJoined);
    }
    return Pass(learned.domain);
}

Finding CheckOwnName(Learned& learned) {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof(name) - 1) != 0) return Fail("the host name cannot be read", "set one");
    return CheckHostName(name, learned.machineAccount);
}

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

Finding CheckTrust(Learned& learned) {
    const auto answer =
        AskTraced(learned.invocation, "the trust state", [&] { return learned.store->GetDomainTrustState(); });
    if (answer.stale) {
        return Fail("the domain did not answer in time", "see whether a domain controller runs and can be reached",
                    ExitCode::Stale);
    }
    const std::string found = std::to_string(answer.value) + ", " + TrustStateWords(learned.provider, answer.value);
    if (!HasKnownStates(learned.provider)) return Warn(found, "look it up in the provider's documentation");
    if (answer.value == 1) return Pass(found);
    for (const TrustRemedy& entry : kTrustRemedies) {
        if (entry.state == answer.value) return Fail(found, entry.remedy, entry.exitCode);
    }
    return Fail(found, "look it up in the provider's documentation");
}

// In the order in which a log-in depends on them, so that the first failure is the one to begin with.
constexpr Check kJoinedChecks[] = {
    {"store", Needs::Nothing, CheckStore},
    {"provider", Needs::Nothing, CheckProvider},
    {"membership", Needs::Provider, CheckMembership},
    {"host name", Needs::Membership, CheckOwnName},
    {"keytab", Needs::Sssd, [](Learned& learned) { return CheckKeytab(kHost, learned.domain); }},
    {"trust state", Needs::Membership, CheckTrust},
    {"clock", Needs::Nothing, [](Learned&) { return CheckClock(); }},
    {"sssd installed", Needs::Sssd, [](Learned&) { return CheckSssdInstalled(kHost); }},
    {"sssd configuration", Needs::Sssd, [](Learned& learned) { return CheckSssdConfiguration(kHost, learned.domain); }},
    {"sssd runs", Needs::Sssd, [](Learned&) { return CheckSssdRuns(kHost); }},
    {"name service", Needs::Provider, [](Learned& learned) { return CheckNameService(kHost, learned.nssService); }},
    {"pam", Needs::Provider, [](Learned& learned) { return CheckPam(kHost, learned.pamModule); }},
};

bool IsMet(Needs needs, const Learned& learned) {
    switch (needs) {
        case Needs::Nothing:
            return true;
        case Needs::Provider:
            return !learned.provider.empty();
        case Needs::Membership:
            return !learned.domain.empty();
        case Needs::Sssd:
            return !learned.domain.empty() && learned.nssService == kSssdService;
    }
    return false;
}

Finding Run(const Check& check, Learned& learned) {
    try {
        return check.run(learned);
    } catch (...) {
        const Failure failure = DescribeCurrentException();
        return Fail(failure.message, failure.remedy.empty() ? "see the message" : failure.remedy, failure.exitCode);
    }
}

const char* Word(Verdict verdict) {
    constexpr const char* kWords[] = {"pass", "warn", "fail"};
    return kWords[static_cast<int>(verdict)];
}

void Show(const Check& check, const Finding& finding, Report& report) {
    Row& row = report.AddRow("check", "checks", check.name);
    row.Text("result", Word(finding.verdict)).Text("found", finding.found);
    if (finding.verdict != Verdict::Pass) row.Text("remedy", finding.remedy);
}

ExitCode CheckJoined(const Invocation& invocation, Report& report) {
    Learned learned{.invocation = invocation};
    Finding worst;
    bool complete = true;
    for (const Check& check : kJoinedChecks) {
        if (!IsMet(check.needs, learned)) {
            complete = complete && (check.needs == Needs::Sssd && !learned.domain.empty());
            continue;
        }
        const Finding finding = Run(check, learned);
        Show(check, finding, report);
        if (finding.verdict > worst.verdict) worst = finding;
    }
    report.Text("result", Word(worst.verdict));
    if (!complete) report.Note("the other checks need what failed here");
    return worst.exitCode;
}

ExitCode RunCheck(const Invocation& invocation, Report& report) {
    if (!invocation.Has("joined")) {
        throw UsageError("nothing to check", "say what: nimauthctl check --joined");
    }
    return CheckJoined(invocation, report);
}

}  // namespace

Command CheckCommand() {
    return {
        .name = "check",
        .summary = "name what is missing when something does not work",
        .description =
            "With --joined: why users of the domain cannot log in on this host. Looks at the active store, the "
            "provider, the membership, the host name, the trust state and the clock; at the provider's modules in "
            "/etc/nsswitch.conf and in the PAM services login and sshd; and, where these modules are SSSD's, at SSSD "
            "itself, its configuration of the domain and the keytab. Nothing is changed.\n\n"
            "Each check is one line with its result: pass, warn or fail, what was found, and a remedy. The exit status "
            "is that of the first failure; warnings do not change it.",
        .options = {{.flags = "--joined", .help = "check what log-ins of a joined host need"}},
        .examples = {{"nimauthctl check --joined", "why can nobody log in?"},
                     {"nimauthctl check --joined --json", "for a monitor"}},
        .exitCodes = {ExitCode::OtherState, ExitCode::NotJoined, ExitCode::Permission, ExitCode::Stale,
                      ExitCode::Authentication, ExitCode::HostName, ExitCode::Network},
        .run = RunCheck};
}

}  // namespace nimbrel::nimauthctl
