// nimauthctl check: whether the host can join, before anything is changed.

#include <string>

#include "sysnet/network_info.h"
#include "tools/nimauthctl/commands/check_table.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

const char* Word(Verdict verdict) {
    switch (verdict) {
        case Verdict::Pass:
            return "pass";
        case Verdict::Warn:
            return "warn";
        case Verdict::Fail:
            return "fail";
    }
    return "";
}

Finding Run(const Check& check, const CheckTarget& target) {
    try {
        return check.run(target);
    } catch (...) {
        const Failure failure = DescribeCurrentException();
        return Fail(failure.exitCode == ExitCode::Ok ? ExitCode::Failure : failure.exitCode, failure.message,
                    failure.remedy);
    }
}

// The worst of all, and the exit status of the first check that failed.
struct Outcome {
    Verdict worst = Verdict::Pass;
    ExitCode exitCode = ExitCode::Ok;
};

Outcome RunChecks(std::span<const Check> checks, const CheckTarget& target, Report& report) {
    Outcome outcome;
    for (const Check& check : checks) {
        if (check.needsDomain && target.domain.empty()) continue;
        const Finding finding = Run(check, target);
        Row& row = report.AddRow("check", "checks", check.name).Text("result", Word(finding.verdict));
        row.Text("finding", finding.text);
        if (!finding.remedy.empty()) row.Text("remedy", finding.remedy);
        if (finding.verdict == Verdict::Fail && outcome.worst != Verdict::Fail) outcome.exitCode = finding.exitCode;
        if (finding.verdict > outcome.worst) outcome.worst = finding.verdict;
    }
    return outcome;
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
    add("configuration store orb/identity/active_directory", "domain " + domain + ", the organizational unit");
}

ExitCode RunCheck(const Invocation& invocation, Report& report) {
    const std::string target = invocation.Text("DOMAIN");
    const CheckTarget about = {invocation, target.substr(0, target.find('/'))};
    const Outcome outcome = RunChecks(PreflightChecks(), about, report);
    report.Text("worst", Word(outcome.worst));
    if (about.domain.empty()) {
        report.Note("no domain was given, so full name, domain name and domain controller are not checked");
    } else {
        AddChanges(about.domain, report);
    }
    return outcome.exitCode;
}

}  // namespace

Command CheckCommand() {
    return {
        .name = "check",
        .summary = "check whether the host can join, before anything is changed",
        .description =
            "Looks at everything that a join needs and changes nothing: the user, the settings files, the provider, "
            "the host's name and how it resolves, the domain and its controllers, the clock, and whether the files "
            "that a join changes can be written. Each line passes, warns or fails, with a remedy; at the end stands "
            "what a join would change.\n\n"
            "The exit status is 0 if no check fails, warnings included, else that of the first one that does: a join "
            "would end with it.",
        .arguments = {{.name = "DOMAIN", .help = "the domain to join, as join takes it", .optional = true}},
        .examples = {{"nimauthctl check corp.test", "can this host join corp.test?"},
                     {"nimauthctl check corp.test | grep 'result=fail'", "what stands in the way?"}},
        .exitCodes = {ExitCode::OtherState, ExitCode::Permission, ExitCode::Authentication, ExitCode::HostName,
                      ExitCode::Network},
        .run = RunCheck};
}

}  // namespace nimbrel::nimauthctl
