// nimauthctl logins disable

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/logins_change.h"

namespace nimbrel::nimauthctl {
namespace {

ExitCode Disable(const Invocation& invocation, Report& report) {
    return ChangeLogins(LoginsAction::Disable, invocation, report);
}

}  // namespace

Command LoginsDisableCommand() {
    return {.name = "logins disable",
            .summary = "take directory logins off this host",
            .description =
                "Takes the active provider's PAM module and name service out again. If nobody else has changed the "
                "files since they were enabled, they become what they were before, byte for byte; else only the "
                "provider's own lines go. Tried, all or nothing, and taken back unless confirmed, as 'nimauthctl "
                "logins enable'.",
            .options = ChangeOptions(""),
            .examples = {{"nimauthctl logins disable --dry-run", "look at the change as a diff"},
                         {"nimauthctl logins disable --confirm-within 0", "make it, for good"}},
            .exitCodes = {ExitCode::OtherState, ExitCode::Permission},
            .changes = true,
            .needsRoot = true,
            .run = Disable};
}

}  // namespace nimbrel::nimauthctl
