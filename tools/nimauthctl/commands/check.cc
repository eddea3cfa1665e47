// nimauthctl check: what stands in the way of a join, or of log-ins on a joined host.

#include "tools/nimauthctl/checks/check.h"

#include <string>

#include "sysnet/network_info.h"
#include "tools/nimauthctl/checks/name_checks.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kSssdService[] = "sss";

const char* Word(Verdict verdict) {
    constexpr const char* kWords[] = {"pass", "warn", "fail"};
    return kWords[static_cast<int>(verdict)];
}

bool IsMet(Needs needs, const CheckSubject& subject) {
    const bool hasDomain = !subject.domain.empty();
    const bool hasProvider = !subject.nssService.empty();
    switch (needs) {
        case Needs::Nothing:
            return true;
        case Needs::Domain:
            return hasDomain;
        case Needs::Settings:
            return !subject.provider.empty();
        case Needs::Provider:
            return hasProvider;
        case Needs::DomainAndProvider:
            return hasDomain && hasProvider;
        case Needs::Sssd:
            return hasDomain && subject.nssService == kSssdService;
    }
    return false;
}

// Whether the check has no place on this host, rather than being kept back by one that failed.
bool IsBesideThePoint(Needs needs, const CheckSubject& subject) {
    return needs == Needs::Sssd && !subject.nssService.empty() && subject.nssService != kSssdService;
}

Finding Run(const Check& check, CheckSubject& subject) {
    try {
        return check.run(subject);
    } catch (...) {
        const Failure failure = DescribeCurrentException();
        return Fail(failure.message, failure.remedy.empty() ? "see the message" : failure.remedy,
                    failure.exitCode == ExitCode::Ok ? ExitCode::Failure : failure.exitCode);
    }
}

void Show(const Check& check, const Finding& finding, Report& report) {
    Row& row = report.AddRow("check", "checks", check.name);
    row.Text("result", Word(finding.verdict)).Text("found", finding.found);
    if (finding.verdict != Verdict::Pass) row.Text("remedy", finding.remedy);
}

bool NeedsDomain(Needs needs) { return needs == Needs::Domain || needs == Needs::DomainAndProvider; }

// Names one after the other.
void AddName(std::string_view name, std::string& names) { names += (names.empty() ? "" : ", ") + std::string(name); }

// Returns the exit status: that of the first failed check.
ExitCode RunChecks(std::span<const Check> checks, CheckSubject& subject, bool domainIsLearned, Report& report) {
    const bool lacksDomain = subject.domain.empty() && !domainIsLearned;
    Finding worst;
    std::string withoutDomain;
    std::string afterFailure;
    for (const Check& check : checks) {
        if (IsMet(check.needs, subject)) {
            const Finding finding = Run(check, subject);
            Show(check, finding, report);
            if (finding.verdict > worst.verdict) worst = finding;
        } else if (!IsBesideThePoint(check.needs, subject)) {
            AddName(check.name, lacksDomain && NeedsDomain(check.needs) ? withoutDomain : afterFailure);
        }
    }
    report.Text("result", Word(worst.verdict));
    if (!withoutDomain.empty()) report.Note("not checked, because no domain was given: " + withoutDomain);
    if (!afterFailure.empty()) report.Note("not checked, because of what failed: " + afterFailure);
    return worst.exitCode;
}

std::string HostsLine(const std::string& domain) try {
    const auto interface = SysNet::Network::NetworkInfoImpl().GetManagementInterface();
    const std::string name = KernelHostName();
    const std::string shortName = name.substr(0, name.find('.'));
    return interface->GetIpConfig().GetIpv4Address().GetStringAddress() + ' ' + shortName + '.' + domain + ' ' +
           shortName;
} catch (...) {
    return "the management interface's address with the host's full and short name";
}

void AddChanges(const std::string& domain, Report& report) {
    const auto add = [&](const char* place, const std::string& to) {
        report.AddRow("change", "changes", place).Text("to", to);
    };
    add("/etc/hosts", HostsLine(domain));
    add("DNS search list", domain + " added, if the host's full name lies elsewhere and the domain resolves");
    add("the directory", "a computer account for this host created or taken over");
    add("the provider's own files", "this host's membership and machine secret");
    add("configuration store", "orb/identity/active_directory: domain " + domain + ", the organizational unit");
}

ExitCode RunCheck(const Invocation& invocation, Report& report) {
    const std::string target = invocation.Text("DOMAIN");
    CheckSubject subject = {.invocation = invocation, .domain = target.substr(0, target.find('/'))};
    if (invocation.Has("joined")) {
        if (invocation.Has("DOMAIN")) throw UsageError("--joined takes no domain: the host knows its own");
        return RunChecks(JoinedChecks(), subject, true, report);
    }
    const ExitCode exitCode = RunChecks(JoinChecks(), subject, false, report);
    if (!subject.domain.empty()) AddChanges(subject.domain, report);
    return exitCode;
}

}  // namespace

Command CheckCommand() {
    return {
        .name = "check",
        .summary = "check whether the host can join, or why log-ins on a joined host fail",
        .description =
            "Without --joined: whether the host can join. Looks at the user, the settings files and those that they "
            "name, the provider, the host's name and how it resolves, the domain and its controllers, the clock, and "
            "whether the files that a join changes can be written; at the end stands what a join would change.\n\n"
            "With --joined: why users of the domain cannot log in on this host. Looks at the same, and at the active "
            "store, the membership, the machine account and the trust state; at the provider's modules in "
            "/etc/nsswitch.conf and in the PAM services login and sshd; and, where these modules are SSSD's, at SSSD "
            "itself, its configuration of the domain and the keytab.\n\n"
            "Nothing is changed. Each check is one line with its result (pass, warn or fail), what was found, and a "
            "remedy; the line 'result' is the gravest. The exit status is that of the first check that fails; "
            "warnings leave it 0.",
        .arguments = {{.name = "DOMAIN", .help = "the domain to join, as join takes it", .optional = true}},
        .options = {{.flags = "--joined", .help = "check what log-ins of a joined host need"}},
        .examples = {{"nimauthctl check corp.test", "can this host join corp.test?"},
                     {"nimauthctl check corp.test | grep 'result=fail'", "what stands in the way?"},
                     {"nimauthctl check --joined", "why can nobody log in?"},
                     {"nimauthctl check --joined --json", "for a monitor"}},
        .exitCodes = {ExitCode::OtherState, ExitCode::NotJoined, ExitCode::Permission, ExitCode::Stale,
                      ExitCode::Authentication, ExitCode::HostName, ExitCode::Network},
        .run = RunCheck};
}

}  // namespace nimbrel::nimauthctl
