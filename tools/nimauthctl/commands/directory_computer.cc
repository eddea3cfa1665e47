// nimauthctl directory computer

#include <openssl/crypto.h>

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/directory_common.h"

namespace nimbrel::nimauthctl {
namespace {

void ShowComputer(const embedded::Directory& directory, const Invocation& invocation, Report& report) {
    AddComputerRow(directory.GetComputer(invocation.Text("DOMAIN"), invocation.Text("NAME")), report);
}

ExitCode Stage(const Invocation& invocation, Report& report) {
    embedded::PreStagedComputer staged =
        OpenDirectory().PreStageComputer(invocation.Text("DOMAIN"), invocation.Text("NAME"), invocation.Text("ou"));
    AddComputerRow(staged.computer, report);
    report.Text("one-time secret", staged.oneTimeSecret);
    OPENSSL_cleanse(staged.oneTimeSecret.data(), staged.oneTimeSecret.size());
    return ExitCode::Ok;
}

ExitCode SetEnabled(const Invocation& invocation, bool enabled, Report& report) {
    embedded::Directory directory = OpenDirectory();
    directory.SetComputerEnabled(invocation.Text("DOMAIN"), invocation.Text("NAME"), enabled);
    ShowComputer(directory, invocation, report);
    return ExitCode::Ok;
}

ExitCode Enable(const Invocation& invocation, Report& report) { return SetEnabled(invocation, true, report); }
ExitCode Disable(const Invocation& invocation, Report& report) { return SetEnabled(invocation, false, report); }

ExitCode Reset(const Invocation& invocation, Report& report) {
    embedded::Directory directory = OpenDirectory();
    directory.ResetComputer(invocation.Text("DOMAIN"), invocation.Text("NAME"));
    ShowComputer(directory, invocation, report);
    return ExitCode::Ok;
}

ExitCode Remove(const Invocation& invocation, Report& report) {
    OpenDirectory().RemoveComputer(invocation.Text("DOMAIN"), invocation.Text("NAME"));
    report.Text("removed computer", invocation.Text("NAME"));
    return ExitCode::Ok;
}

ExitCode List(const Invocation& invocation, Report& report) {
    report.List("computer", "computers");
    for (const auto& computer : OpenDirectory().ListComputers(invocation.Text("DOMAIN"))) {
        AddComputerRow(computer, report);
    }
    return ExitCode::Ok;
}

const Argument kName = {.name = "NAME", .help = "the computer's short name"};

// The four changes of a present account look alike from outside.
Command Change(const std::string& verb, const std::string& summary, const std::string& description,
               const std::string& example, CommandFunction run) {
    return {.name = "directory computer " + verb,
            .summary = summary,
            .description = Describe(description),
            .arguments = {kDomainArgument, kName},
            .examples = {{"nimauthctl directory computer " + verb + " corp.test NODE01", example}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = run};
}

}  // namespace

Command DirectoryComputerStageCommand() {
    return {
        .name = "directory computer stage",
        .summary = "create a computer account in the embedded directory before its host joins",
        .description = Describe("Creates the account and shows its one-time secret, with which a host joins through an "
                                "authentication proxy. The secret can be seen only now."),
        .arguments = {kDomainArgument, kName},
        .options = {{.flags = "--ou", .value = "OU", .help = "its organizational unit"}},
        .examples = {{"nimauthctl directory computer stage corp.test NODE02 --ou Hosts", "an account for node02"}},
        .exitCodes = {ExitCode::OtherState, ExitCode::Permission, ExitCode::HostName},

        .run = Stage};
}

Command DirectoryComputerEnableCommand() {
    return Change("enable", "enable a computer account of the embedded directory", "Enables the account again.",
                  "the host is trusted again", Enable);
}

Command DirectoryComputerDisableCommand() {
    return Change("disable", "disable a computer account of the embedded directory",
                  "Disables the account: a host that is joined with it is refused from now on.",
                  "rehearse a host that was locked out", Disable);
}

Command DirectoryComputerResetCommand() {
    return Change("reset", "reset the secret of a computer account of the embedded directory",
                  "Gives the account a secret that nobody has: a host that is joined with it is out of step.",
                  "rehearse a restored snapshot", Reset);
}

Command DirectoryComputerRemoveCommand() {
    return Change("remove", "remove a computer account from the embedded directory",
                  "Removes the account. A host that is joined with it stays joined without one.",
                  "rehearse a deleted account", Remove);
}

Command DirectoryComputerListCommand() {
    return {.name = "directory computer list",
            .summary = "list the computer accounts of the embedded directory",
            .description = Describe("Lists the accounts with their state."),
            .arguments = {kOptionalDomainArgument},
            .examples = {{"nimauthctl directory computer list", "the accounts of every domain"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

}  // namespace nimbrel::nimauthctl
