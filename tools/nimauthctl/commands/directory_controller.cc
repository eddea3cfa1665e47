// nimauthctl directory controller

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/directory_common.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/numbers.h"

namespace nimbrel::nimauthctl {
namespace {

void ShowController(const embedded::Directory& directory, const Invocation& invocation, Report& report) {
    for (const auto& controller : directory.ListControllers(invocation.Text("DOMAIN"))) {
        if (SameName(controller.name, invocation.Text("NAME"))) AddControllerRow(controller, report);
    }
}

ExitCode Add(const Invocation& invocation, Report& report) {
    embedded::ControllerInfo controller;
    controller.domain = invocation.Text("DOMAIN");
    controller.name = invocation.Text("NAME");
    controller.reachable = !invocation.Has("unreachable");
    if (invocation.Has("priority")) {
        controller.priority = static_cast<int>(ParseInteger("--priority", invocation.Text("priority"), 0, 65535));
    }
    embedded::Directory directory = OpenDirectory();
    directory.AddController(controller);
    ShowController(directory, invocation, report);
    return ExitCode::Ok;
}

ExitCode Set(const Invocation& invocation, Report& report) {
    const bool reachable = ParseYesNo("--reachable", invocation.Text("reachable"));
    embedded::Directory directory = OpenDirectory();
    directory.SetControllerReachable(invocation.Text("DOMAIN"), invocation.Text("NAME"), reachable);
    ShowController(directory, invocation, report);
    return ExitCode::Ok;
}

ExitCode Remove(const Invocation& invocation, Report& report) {
    OpenDirectory().RemoveController(invocation.Text("DOMAIN"), invocation.Text("NAME"));
    report.Text("removed controller", invocation.Text("NAME"));
    return ExitCode::Ok;
}

ExitCode List(const Invocation& invocation, Report& report) {
    report.List("controller", "controllers");
    for (const auto& controller : OpenDirectory().ListControllers(invocation.Text("DOMAIN"))) {
        AddControllerRow(controller, report);
    }
    return ExitCode::Ok;
}

const Argument kName = {.name = "NAME", .help = "the controller's full name, dc1.corp.test"};

}  // namespace

Command DirectoryControllerAddCommand() {
    return {.name = "directory controller add",
            .summary = "add a domain controller to the embedded directory",
            .description =
                Describe("Adds a controller. It is a name only: the file itself answers for all of them, as long "
                         "as one of the domain's controllers counts as reachable."),
            .arguments = {kDomainArgument, kName},
            .options = {{.flags = "--priority",
                         .value = "N",
                         .help = "0 to 65535, the lowest is asked first; 0 unless given"},
                        {.flags = "--unreachable", .help = "the controller does not answer"}},
            .examples = {{"nimauthctl directory controller add corp.test dc2.corp.test --priority 10",
                          "a second controller"}},
            .exitCodes = {ExitCode::OtherState, ExitCode::Permission, ExitCode::HostName},
            .changes = true,
            .run = Add};
}

Command DirectoryControllerSetCommand() {
    return {.name = "directory controller set",
            .summary = "make a domain controller of the embedded directory answer or not",
            .description = Describe("A domain whose controllers all count as unreachable answers with 1355."),
            .arguments = {kDomainArgument, kName},
            .options = {{.flags = "--reachable", .value = "yes|no", .help = "whether it answers", .required = true}},
            .examples = {{"nimauthctl directory controller set corp.test dc1.corp.test --reachable no",
                          "rehearse a controller that is down"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Set};
}

Command DirectoryControllerRemoveCommand() {
    return {.name = "directory controller remove",
            .summary = "remove a domain controller from the embedded directory",
            .description = Describe("Removes the controller."),
            .arguments = {kDomainArgument, kName},
            .examples = {{"nimauthctl directory controller remove corp.test dc2.corp.test", "one controller less"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Remove};
}

Command DirectoryControllerListCommand() {
    return {.name = "directory controller list",
            .summary = "list the domain controllers of the embedded directory",
            .description = Describe("Lists the controllers, the one that is asked first at the top."),
            .arguments = {kOptionalDomainArgument},
            .examples = {{"nimauthctl directory controller list corp.test", "the controllers of one domain"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

}  // namespace nimbrel::nimauthctl
