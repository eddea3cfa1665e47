// nimauthctl logins history

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/logins_common.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

ExitCode History(const Invocation&, Report& report) {
    return Translated([&] {
        logins::Journal journal;
        Recover(journal, report);
        report.List("change", "changes");
        for (const logins::Entry& entry : journal.ReadableEntries()) ShowEntry(entry, report);
        return ExitCode::Ok;
    });
}

}  // namespace

Command LoginsHistoryCommand() {
    return {
        .name = "logins history",
        .summary = "list the changes of the logins",
        .description =
            "The last fifty, the newest at the end, with what became of them: applied (waits for its confirmation), "
            "confirmed, restored (failed, or not confirmed), undone. The files as they were before change 7 are in "
            "/var/lib/nimbrel/logins/7/before.",
        .examples = {{"nimauthctl logins history --json", "for a program"}},
        .exitCodes = {ExitCode::Permission},
        .needsRoot = true,
        .run = History};
}

}  // namespace nimbrel::nimauthctl
