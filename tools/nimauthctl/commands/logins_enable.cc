// nimauthctl logins enable

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/logins_change.h"

namespace nimbrel::nimauthctl {
namespace {

ExitCode Enable(const Invocation& invocation, Report& report) {
    return ChangeLogins(LoginsAction::Enable, invocation, report);
}

}  // namespace

Command LoginsEnableCommand() {
    return {.name = "logins enable",
            .summary = "let users of the directory log in on this host",
            .description =
                "Puts the active provider's PAM module and name service in place: through a profile of its own where "
                "pam-auth-update makes the PAM files, through authselect where that manages the host, else in the "
                "files themselves. All other lines stay as they are, byte for byte.\n\n"
                "The candidate is tried on a copy first: libpam opens every service, and root must still get in, also "
                "with the directory down. Then all files are replaced or none. Unless 'nimauthctl logins confirm' "
                "follows in time, everything is put back, even if this tool, or its terminal, is gone by then.",
            .options = ChangeOptions("also on a host that is not joined"),
            .examples = {{"nimauthctl logins enable --dry-run", "look at the change as a diff"},
                         {"nimauthctl logins enable", "make it; then log in elsewhere and confirm"},
                         {"nimauthctl logins enable --services sshd,login", "for these two services only"}},
            .exitCodes = {ExitCode::OtherState, ExitCode::NotJoined, ExitCode::Permission},
            .changes = true,
            .needsRoot = true,
            .run = Enable};
}

}  // namespace nimbrel::nimauthctl
