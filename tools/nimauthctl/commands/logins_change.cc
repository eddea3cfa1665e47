#include "tools/nimauthctl/commands/logins_change.h"

#include <array>
#include <cstdio>

#include "tools/loginfiles/trial.h"
#include "tools/loginfiles/unified_diff.h"
#include "tools/loginfiles/watch.h"
#include "tools/nimauthctl/commands/logins_common.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using logins::Change;
using logins::FileState;

constexpr int kConfirmWithin = 60;
constexpr int kLongestConfirmation = 86400;

const char* ActionName(LoginsAction action) { return action == LoginsAction::Enable ? "enable" : "disable"; }

void RequireJoined(const Invocation& invocation) {
    if (invocation.Has("force")) return;
    const auto answer = AskConfiguration(*OpenStore(invocation), invocation);
    if (!answer.stale && !answer.value.DomainDNSName().empty()) return;
    throw ToolError(ExitCode::NotJoined,
                    answer.stale ? "the directory does not say whether this host is joined" : "this host is not joined",
                    "nobody of the directory could log in", "join first, or add --force");
}

void RequireNothingWaits(const logins::Journal& journal) {
    if (const std::optional<logins::Entry> waiting = journal.Waiting()) {
        throw logins::LoginsError(logins::LoginsError::Kind::State,
                                  "change " + std::to_string(waiting->record.id) + " still waits for its confirmation",
                                  "'nimauthctl logins confirm' or 'nimauthctl logins undo' first");
    }
    for (const logins::Damage& damage : journal.Damages()) {
        if (!damage.isOver) journal.Refuse(damage);  // it may wait
    }
}

void RequirePreviewed(const Invocation& invocation, const std::vector<Change>& changes) {
    if (!invocation.Has("preview") || invocation.Text("preview") == PreviewNumber(changes)) return;
    throw logins::LoginsError(logins::LoginsError::Kind::Changed,
                              "the change is not the one that was previewed: a file has changed since",
                              "look at a new preview with --dry-run");
}

int Seconds(const Invocation& invocation) {
    if (!invocation.Has("confirm-within")) return kConfirmWithin;
    return static_cast<int>(
        ParseInteger("--confirm-within", invocation.Text("confirm-within"), 0, kLongestConfirmation));
}

const std::string* ContentOf(const FileState& state) {
    return state.kind == FileState::Kind::Absent ? nullptr : &state.content;
}

std::string Ownership(const FileState& state) {
    std::array<char, 64> text{};
    const int size = std::snprintf(text.data(), text.size(), "%04o %u %u", state.mode, state.owner, state.group);
    return {text.data(), static_cast<std::size_t>(size)};
}

void ShowFiles(const std::vector<Change>& changes, Report& report) {
    report.List("file", "files");
    for (const Change& change : changes) {
        const bool created = change.before.kind == FileState::Kind::Absent;
        const bool removed = change.after.kind == FileState::Kind::Absent;
        report.AddRow("file", "files", change.path)
            .Text("change", created   ? "created"
                            : removed ? "removed"
                                      : "modified");
    }
}

// One run of a command.
class LoginsChange {
 public:
    LoginsChange(LoginsAction action, const Invocation& invocation, Report& report)
        : _action(action), _invocation(invocation), _report(report), _services(NamedServices(invocation)) {}

    ExitCode Go() {
        const int seconds = Seconds(_invocation);
        if (_action == LoginsAction::Enable) RequireJoined(_invocation);
        _provider = ConfiguredModules();
        _journal.Lock();
        Recover(_journal, _report);
        RequireNothingWaits(_journal);
        MakePlan();
        RequirePreviewed(_invocation, _plan.changes);
        if (_plan.changes.empty()) return ReportUnchanged();
        TryPlan();
        if (_invocation.Has("dry-run")) return ReportPreview();
        return Apply(seconds);
    }

 private:
    void MakePlan() {
        _plan = _action == LoginsAction::Enable ? logins::PlanEnable(_journal, _provider, _services)
                                                : logins::PlanDisable(_journal, _provider, _services);
        for (const std::string& note : _plan.notes) _report.Note(note);
    }
    void TryPlan() {
        _invocation.Trace("trying the candidate");
        logins::Try(
            _journal, _provider,
            {logins::ReadPamFiles(), logins::FilesAfter(_plan.changes), _action == LoginsAction::Enable, _services});
    }
    void ReportPlan(bool changed) {
        _report.Flag("changed", changed);
        _report.Text("mechanism", _plan.mechanism);
        _report.Text("PAM module", _provider.pamModule);
        _report.Text("NSS service", _provider.nssService);
    }
    ExitCode ReportUnchanged() {
        ReportPlan(false);
        _report.List("file", "files");
        return ExitCode::Ok;
    }
    ExitCode ReportPreview() {
        ReportPlan(false);
        ShowFiles(_plan.changes, _report);
        _report.Text("preview", PreviewNumber(_plan.changes));
        _report.Verbatim("diff", Diffs(_plan.changes));
        return ExitCode::Ok;
    }
    ExitCode Apply(int seconds);

    LoginsAction _action;
    const Invocation& _invocation;
    Report& _report;
    std::vector<std::string> _services;
    logins::ProviderModules _provider;
    logins::Journal _journal;
    logins::Plan _plan;
};

ExitCode LoginsChange::Apply(int seconds) {
    logins::Record record;
    record.action = ActionName(_action);
    record.mechanism = _plan.mechanism;
    record.pamModule = _provider.pamModule;
    record.nssService = _provider.nssService;
    record.services = _services;
    record.changes = _plan.changes;
    const std::int64_t wait = std::int64_t{seconds} * 1000;
    if (wait > 0) {
        record.bootId = logins::Journal::BootId();
        record.deadline = logins::Journal::MillisecondsSinceBoot() + wait;
    }
    const int id = _journal.Apply(record, [wait](int number) {
        if (wait > 0) logins::StartWatcher(number, static_cast<long>(wait));
    });
    ReportPlan(true);
    _report.Number("change", id);
    _report.Number("confirm within", seconds);
    ShowFiles(_plan.changes, _report);
    if (wait > 0) {
        _report.Note(
            "log in once more from another terminal, then run 'nimauthctl logins confirm'; without it the change "
            "is taken back in " +
            std::to_string(seconds) + " seconds");
    }
    return ExitCode::Ok;
}

}  // namespace

ExitCode ChangeLogins(LoginsAction action, const Invocation& invocation, Report& report) {
    return Translated([&] { return LoginsChange(action, invocation, report).Go(); });
}

std::vector<Option> ChangeOptions(const std::string& forceHelp) {
    std::vector<Option> options = {
        {.flags = "--services",
         .value = "NAME[,NAME]",
         .help = "only these PAM services, in their own files; all of the host's unless given",
         .repeatable = true},
        {.flags = "--dry-run", .help = "change nothing: show a unified diff of every file that would change"},
        {.flags = "--preview",
         .value = "NUMBER",
         .help = "go on only if the change is still the one that --dry-run showed under this number"},
        {.flags = "--confirm-within",
         .value = "SECONDS",
         .help = "take the change back unless 'nimauthctl logins confirm' is given in time, 0 to 86400; 60 unless "
                 "given, 0 needs no confirmation"}};
    if (!forceHelp.empty()) options.push_back({.flags = "--force", .help = forceHelp});
    return options;
}

// FNV-1a over everything that tells two changes apart.
std::string PreviewNumber(const std::vector<Change>& changes) {
    std::uint64_t hash = 14695981039346656037U;
    const auto add = [&hash](const std::string& text) {
        for (const char c : text + '\0') hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    };
    for (const Change& change : changes) {
        add(change.path);
        for (const FileState* state : {&change.before, &change.after}) {
            add(std::to_string(static_cast<int>(state->kind)) + ' ' + Ownership(*state));
            add(state->content);
            for (const auto& [name, value] : state->attributes) add(name), add(value);
        }
    }
    std::array<char, 17> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash)));
    return text.data();
}

std::string Diffs(const std::vector<Change>& changes) {
    std::string text;
    for (const Change& change : changes) {
        const std::string* const before = ContentOf(change.before);
        const std::string* const after = ContentOf(change.after);
        if (before != nullptr && after != nullptr && Ownership(change.before) != Ownership(change.after)) {
            text += "# " + change.path + ": " + Ownership(change.before) + " becomes " + Ownership(change.after) + '\n';
        }
        text += logins::UnifiedDiff(change.path, before, after);
    }
    return text;
}

}  // namespace nimbrel::nimauthctl
