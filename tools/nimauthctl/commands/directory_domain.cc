// nimauthctl directory domain, and the whole of the embedded directory at a glance.

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/directory_common.h"

namespace nimbrel::nimauthctl {
namespace {

ExitCode Add(const Invocation& invocation, Report& report) {
    embedded::Directory directory =
        embedded::Directory::Open(embedded::kDefaultDirectoryPath, embedded::OpenMode::CreateIfMissing);
    AddDomainRow(directory.AddDomain(invocation.Text("DOMAIN"), invocation.Text("netbios")), report);
    return ExitCode::Ok;
}

ExitCode Remove(const Invocation& invocation, Report& report) {
    OpenDirectory().RemoveDomain(invocation.Text("DOMAIN"));
    report.Text("removed domain", invocation.Text("DOMAIN"));
    return ExitCode::Ok;
}

ExitCode List(const Invocation&, Report& report) {
    report.List("domain", "domains");
    for (const embedded::DomainInfo& domain : OpenDirectory().ListDomains()) AddDomainRow(domain, report);
    return ExitCode::Ok;
}

ExitCode ShowAll(const Invocation&, Report& report) {
    const embedded::DirectorySnapshot all = OpenDirectory().Export();
    report.Text("directory", embedded::kDefaultDirectoryPath);
    report.List("domain", "domains");
    for (const auto& domain : all.domains) AddDomainRow(domain, report);
    report.List("controller", "controllers");
    for (const auto& controller : all.controllers) AddControllerRow(controller, report);
    report.List("trust", "trusts");
    for (const auto& trust : all.trusts) AddTrustRow(trust, report);
    report.List("organizational unit", "organizational units");
    for (const auto& unit : all.organizationalUnits) AddUnitRow(unit, report);
    report.List("user", "users");
    for (const auto& user : all.users) AddUserRow(user, report);
    report.List("computer", "computers");
    for (const auto& computer : all.computers) AddComputerRow(computer, report);
    report.List("rehearsal", "rehearsals");
    for (const auto& rehearsal : all.rehearsals) AddRehearsalRow(rehearsal, report);
    return ExitCode::Ok;
}

}  // namespace

Command DirectoryShowCommand() {
    return {
        .name = "directory show",
        .summary = "show everything in the embedded directory",
        .description = Describe("Shows domains, controllers, trusts, organizational units, users, computer accounts "
                                "and rehearsals. Passwords and secrets are never shown."),
        .examples = {{"nimauthctl directory show", "all of it"}},
        .exitCodes = {ExitCode::Permission},
        .run = ShowAll};
}

Command DirectoryDomainAddCommand() {
    return {.name = "directory domain add",
            .summary = "add a domain to the embedded directory, which is created if need be",
            .description = Describe("Adds a domain with a new SID and one reachable controller, dc1.DOMAIN."),
            .arguments = {{"DOMAIN", "the domain's DNS name"}},
            .options = {{.flags = "--netbios",
                         .value = "NAME",
                         .help = "its NetBIOS name; unless given, the first part of the DNS name in capitals"}},
            .examples = {{"nimauthctl directory domain add corp.test", "a domain to try things out in"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Add};
}

Command DirectoryDomainRemoveCommand() {
    return {
        .name = "directory domain remove",
        .summary = "remove a domain, with everything in it, from the embedded directory",
        .description = Describe("Removes the domain, its users, accounts, controllers and organizational units, and "
                                "the trusts of other domains to it. A host that is joined to it stays joined, to a "
                                "domain that no longer answers."),
        .arguments = {kDomainArgument},
        .examples = {{"nimauthctl directory domain remove corp.test", "what does an agent do when its domain goes?"}},
        .exitCodes = ChangeExitCodes(),
        .changes = true,
        .run = Remove};
}

Command DirectoryDomainListCommand() {
    return {.name = "directory domain list",
            .summary = "list the domains of the embedded directory",
            .description = Describe("Lists the domains with their NetBIOS names and SIDs."),
            .examples = {{"nimauthctl directory domain list", "every domain"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

}  // namespace nimbrel::nimauthctl
