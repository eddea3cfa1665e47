#include "tools/nimauthctl/commands/logins_common.h"

#include <array>
#include <ctime>
#include <sstream>

#include "authentication/configuration.h"
#include "authentication/provider.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using logins::LoginsError;

ExitCode CodeOf(const LoginsError& error) {
    switch (error.Reason()) {
        case LoginsError::Kind::Changed:
        case LoginsError::Kind::State:
            return ExitCode::OtherState;
        case LoginsError::Kind::Refused:
        case LoginsError::Kind::System:
            break;
    }
    return ExitCode::Failure;
}

std::string CauseOf(const LoginsError& error) {
    switch (error.Reason()) {
        case LoginsError::Kind::Refused:
            return "the change was refused before any file was touched";
        case LoginsError::Kind::Changed:
            return "a file is not what it was when the change was worked out; no file has been changed";
        case LoginsError::Kind::State:
            return "";
        case LoginsError::Kind::System:
            break;
    }
    return "the files are as they were before, as far as this message does not say otherwise";
}

std::string Time(std::int64_t seconds) {
    const std::time_t time = seconds;
    struct tm parts = {};
    std::array<char, 32> text{};
    if (gmtime_r(&time, &parts) == nullptr) return "";
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace

logins::ProviderModules ConfiguredModules() {
    const authentication::ProviderConfiguration settings;
    const authentication::ActiveDirectoryProvider provider(settings["provider"]);
    return {provider.PAMModule(),
            {provider.PAMModuleParameters().begin(), provider.PAMModuleParameters().end()},
            provider.NSSModule(),
            {provider.NSSModuleParameters().begin(), provider.NSSModuleParameters().end()}};
}

std::vector<std::string> NamedServices(const Invocation& invocation) {
    std::vector<std::string> services;
    for (const std::string& list : invocation.Texts("services")) {
        std::istringstream names(list);
        names.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
        for (std::string name; std::getline(names, name, ',');) {
            if (name.empty() || name.find('/') != std::string::npos) {
                throw UsageError("--services takes names of PAM services, separated by commas");
            }
            services.push_back(name);
        }
    }
    return services;
}

void Recover(logins::Journal& journal, Report& report) {
    for (const logins::Entry& entry : journal.Recover()) {
        report.Note("change " + std::to_string(entry.record.id) + " has been taken back: " + entry.reason);
    }
    for (const logins::Damage& damage : journal.Damages()) {
        report.Note("change " + std::to_string(damage.id) + " cannot be read: " + damage.reason);
    }
}

void ShowEntry(const logins::Entry& entry, Report& report) {
    const logins::Record& record = entry.record;
    Row& row = report.AddRow("change", "changes", std::to_string(record.id));
    row.Text("action", record.action).Text("state", logins::Name(entry.progress)).Text("time", Time(record.started));
    row.Text("mechanism", record.mechanism).Text("module", record.pamModule).Text("nss", record.nssService);
    std::string services;
    for (const std::string& service : record.services) services += (services.empty() ? "" : ",") + service;
    row.Text("services", services.empty() ? "all" : services);
    row.Number("files", static_cast<std::int64_t>(record.changes.size()));
    if (record.undoes != 0) row.Number("undoes", record.undoes);
    if (!entry.reason.empty()) row.Text("reason", entry.reason);
    if (entry.progress != logins::Progress::Applied) return;
    row.Number("seconds-left", (record.deadline - logins::Journal::MillisecondsSinceBoot() + 999) / 1000);
}

void ThrowAsToolError(const LoginsError& error) {
    throw ToolError(CodeOf(error), error.what(), CauseOf(error), error.Remedy());
}

}  // namespace nimbrel::nimauthctl
