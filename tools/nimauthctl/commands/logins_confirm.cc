// nimauthctl logins confirm

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/logins_common.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

ExitCode Confirm(const Invocation&, Report& report) {
    return Translated([&] {
        logins::Journal journal;
        Recover(journal, report);
        const std::optional<logins::Entry> waiting = journal.Waiting();
        if (!waiting) {
            throw logins::LoginsError(logins::LoginsError::Kind::State, "no change waits for a confirmation",
                                      "'nimauthctl logins history' tells what became of it");
        }
        journal.Confirm(waiting->record.id);
        report.Number("confirmed", waiting->record.id);
        return ExitCode::Ok;
    });
}

}  // namespace

Command LoginsConfirmCommand() {
    return {.name = "logins confirm",
            .summary = "keep the last change of the logins",
            .description = "Without it, the change is taken back when its time is over.",
            .examples = {{"nimauthctl logins confirm", "after a log-in from another terminal has worked"}},
            .exitCodes = {ExitCode::OtherState, ExitCode::Permission},
            .changes = true,
            .needsRoot = true,
            .run = Confirm};
}

}  // namespace nimbrel::nimauthctl
