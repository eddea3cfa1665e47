// nimauthctl logins show

#include <unistd.h>

#include <map>
#include <sstream>

#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/pam_policy.h"
#include "tools/loginfiles/pam_text.h"
#include "tools/loginfiles/plan.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/logins_common.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kServiceArgument[] = "SERVICE";

// "a  b\tc" -> "a b c", without a comment.
std::string Words(const std::string& line) {
    std::istringstream stream(line.substr(0, line.find('#')));
    std::string words;
    for (std::string word; stream >> word;) words += (words.empty() ? "" : " ") + word;
    return words;
}

std::string Trimmed(const std::string& line) {
    const std::size_t begin = line.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : line.substr(begin);
}

// How many lines of the text the model does not give back, by what they are.
template <typename Model>
std::string Losses(const std::string& text, Model& model) {
    std::istringstream in(text);
    std::string failure;
    try {
        in >> model;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    std::ostringstream out;
    out << model;
    std::map<std::string, int> kept;
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);) ++kept[Words(line)];
    int comments = 0;
    int others = 0;
    std::istringstream original(text);
    for (std::string line; std::getline(original, line);) {
        const std::string words = Words(line);
        if (line.find('#') != std::string::npos && Trimmed(line) != "#%PAM-1.0") ++comments;
        if (!words.empty() && --kept[words] < 0) ++others;
    }
    std::string losses;
    if (comments > 0) losses = std::to_string(comments) + " comments";
    if (others > 0) losses += (losses.empty() ? "" : ", ") + std::to_string(others) + " lines";
    if (!failure.empty()) losses += " (" + failure + ')';
    return losses;
}

std::string PamLosses(const std::string& name, const std::string& text) {
    SystemConfiguration::PAMPolicy policy(name);
    return Losses(text, policy);
}

std::string NssLosses(const std::string& text) {
    SystemConfiguration::NSSConfiguration configuration;
    return Losses(text, configuration);
}

void ShowRule(const std::string& service, const logins::EffectiveRule& rule, const std::string& module,
              Report& report) {
    const logins::PamLine& line = rule.line;
    Row& row = report.AddRow("entry", "entries", service);
    if (line.kind == logins::PamLine::Kind::Unreadable) {
        row.Text("unreadable", line.raw.substr(0, line.raw.find('\n')));
    } else {
        std::string arguments;
        for (const std::string& word : line.arguments) arguments += (arguments.empty() ? "" : " ") + word;
        row.Text("type", (line.optional ? "-" : "") + line.type).Text("control", line.control);
        row.Text("module", line.module).Text("arguments", arguments);
    }
    row.Text("file", rule.file).Number("line", line.number);
    row.Flag("directory", !module.empty() && logins::ModuleName(line) == module);
}

void ShowService(const logins::PamFiles& files, const std::string& service, const std::string& module, Report& report) {
    for (const logins::EffectiveRule& rule : logins::EffectiveStack(files, service)) {
        ShowRule(service, rule, module, report);
    }
}

void ShowDatabases(const std::string& nssService, Report& report) {
    report.List("database", "databases");
    std::string text;
    if (access(logins::kNsswitch, F_OK) == 0) text = logins::ReadWhole(logins::Resolve(logins::kNsswitch));
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string words = Words(line);
        const std::size_t colon = words.find(':');
        if (colon == std::string::npos) continue;
        const std::string sources = words.substr(std::min(words.find_first_not_of(": ", colon), words.size()));
        report.AddRow("database", "databases", words.substr(0, words.find_last_not_of(" :", colon) + 1))
            .Text("sources", sources)
            .Flag("directory",
                  !nssService.empty() && (' ' + sources + ' ').find(' ' + nssService + ' ') != std::string::npos);
    }
    const std::string losses = NssLosses(text);
    if (!losses.empty()) report.AddRow("model", "model", logins::kNsswitch).Text("loses", losses);
}

// Looking needs no provider; without one nothing is marked as the directory's.
logins::ProviderModules ModulesOrNone(Report& report) try { return ConfiguredModules(); } catch (...) {
    report.AddFailure(DescribeCurrentException());
    return {};
}

ExitCode Show(const Invocation& invocation, Report& report) {
    return Translated([&] {
        if (geteuid() == 0) {
            logins::Journal journal;
            Recover(journal, report);
            if (const auto waiting = journal.Waiting()) ShowEntry(*waiting, report);
        }
        const logins::ProviderModules provider = ModulesOrNone(report);
        const logins::PamFiles files = logins::ReadPamFiles();
        const std::string only = invocation.Text(kServiceArgument);
        if (!only.empty() && !files.contains(only)) {
            throw UsageError("there is no PAM service '" + only + "'", "leave it out to see them all");
        }
        report.Text("mechanism", logins::Name(logins::HostMechanism()));
        report.TextOrNone("PAM module", provider.pamModule);
        report.TextOrNone("NSS service", provider.nssService);
        report.List("entry", "entries");
        for (const auto& [name, text] : files) {
            if (only.empty() ? logins::IsService(name) : name == only) {
                ShowService(files, name, provider.pamModule, report);
            }
        }
        report.List("model", "model");
        for (const auto& [name, text] : files) {
            const bool shown = only.empty() ? logins::IsService(name) : name == only;
            const std::string losses = shown ? PamLosses(name, text) : "";
            if (!losses.empty()) report.AddRow("model", "model", name).Text("loses", losses);
        }
        ShowDatabases(provider.nssService, report);
        return report.Failures().empty() ? ExitCode::Ok : report.Failures().front().exitCode;
    });
}

}  // namespace

Command LoginsShowCommand() {
    return {.name = "logins show",
            .summary = "show who may log in through what",
            .description =
                "For each PAM service its effective rules, with the files that it includes put in place, and which of "
                "them are the directory provider's; for each name-service database its sources. Lines 'model' tell "
                "what a program would lose that rewrites the file through the library's PAM and name-service model "
                "instead of this command.",
            .arguments = {{.name = kServiceArgument, .help = "only this PAM service, as sshd", .optional = true}},
            .examples = {{"nimauthctl logins show sshd", "the rules of one service"},
                         {"nimauthctl logins show --json", "everything, for a program"}},
            .exitCodes = {ExitCode::Permission},
            .run = Show};
}

}  // namespace nimbrel::nimauthctl
