// nimauthctl logins undo

#include <algorithm>

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/logins_common.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

bool Stands(const logins::Entry& entry) {
    const bool there = entry.progress == logins::Progress::Applied || entry.progress == logins::Progress::Confirmed;
    return there && entry.record.undoes == 0;
}

// A later change that cannot be read may be the one that was meant.
void RequireNoneBehind(int id, const logins::Journal& journal) {
    for (const logins::Damage& damage : journal.Damages()) {
        if (damage.id > id) journal.Refuse(damage);
    }
}

logins::Record Reverse(const logins::Record& record) {
    logins::Record reverse = record;
    reverse.action = "undo";
    reverse.undoes = record.id;
    reverse.deadline = 0;
    reverse.bootId.clear();
    for (logins::Change& change : reverse.changes) std::swap(change.before, change.after);
    return reverse;
}

ExitCode Undo(const Invocation&, Report& report) {
    return Translated([&] {
        logins::Journal journal;
        Recover(journal, report);
        const std::vector<logins::Entry> entries = journal.ReadableEntries();
        const auto last = std::find_if(entries.rbegin(), entries.rend(), Stands);
        RequireNoneBehind(last == entries.rend() ? 0 : last->record.id, journal);
        if (last == entries.rend()) {
            throw logins::LoginsError(logins::LoginsError::Kind::State, "there is no change to undo",
                                      "'nimauthctl logins history' lists the changes");
        }
        const int id = journal.Apply(Reverse(last->record), [](int) {});
        report.Number("undone", last->record.id);
        report.Number("change", id);
        for (const logins::Change& change : last->record.changes) report.AddRow("file", "files", change.path);
        return ExitCode::Ok;
    });
}

}  // namespace

Command LoginsUndoCommand() {
    return {.name = "logins undo",
            .summary = "go back to before the last change of the logins",
            .description =
                "Puts every file of the last change that still stands back to what it was before, all or none; run it "
                "again to go back further. Refused if somebody else has changed one of the files since. Needs no "
                "confirmation.",
            .examples = {{"nimauthctl logins undo", "at once, without waiting for the time to be over"}},
            .exitCodes = {ExitCode::OtherState, ExitCode::Permission},
            .changes = true,
            .needsRoot = true,
            .run = Undo};
}

}  // namespace nimbrel::nimauthctl
