// nimauthctl directory ou

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/directory_common.h"

namespace nimbrel::nimauthctl {
namespace {

ExitCode Add(const Invocation& invocation, Report& report) {
    AddUnitRow(OpenDirectory().AddOrganizationalUnit(invocation.Text("DOMAIN"), invocation.Text("OU")), report);
    return ExitCode::Ok;
}

ExitCode Remove(const Invocation& invocation, Report& report) {
    OpenDirectory().RemoveOrganizationalUnit(invocation.Text("DOMAIN"), invocation.Text("OU"));
    report.Text("removed organizational unit", invocation.Text("OU"));
    return ExitCode::Ok;
}

ExitCode List(const Invocation& invocation, Report& report) {
    report.List("organizational unit", "organizational units");
    for (const auto& unit : OpenDirectory().ListOrganizationalUnits(invocation.Text("DOMAIN"))) {
        AddUnitRow(unit, report);
    }
    return ExitCode::Ok;
}

const Argument kUnit = {
    .name = "OU", .help = "outermost first, Hosts/Lab, or as distinguished name, OU=Lab,OU=Hosts,DC=corp,DC=test"};

}  // namespace

Command DirectoryUnitAddCommand() {
    return {.name = "directory ou add",
            .summary = "add an organizational unit to the embedded directory",
            .description = Describe("Adds the unit, and those above it that are missing."),
            .arguments = {kDomainArgument, kUnit},
            .examples = {{"nimauthctl directory ou add corp.test Hosts/Lab", "a unit inside another"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Add};
}

Command DirectoryUnitRemoveCommand() {
    return {.name = "directory ou remove",
            .summary = "remove an organizational unit from the embedded directory",
            .description = Describe("Removes the unit; it must not hold accounts or units."),
            .arguments = {kDomainArgument, kUnit},
            .examples = {{"nimauthctl directory ou remove corp.test Hosts/Lab", "an empty unit"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Remove};
}

Command DirectoryUnitListCommand() {
    return {.name = "directory ou list",
            .summary = "list the organizational units of the embedded directory",
            .description = Describe("Lists the units with their distinguished names."),
            .arguments = {kOptionalDomainArgument},
            .examples = {{"nimauthctl directory ou list", "the units of every domain"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

}  // namespace nimbrel::nimauthctl
