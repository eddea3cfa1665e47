#include "tools/nimauthctl/tool.h"

#include <unistd.h>

#include <csignal>
#include <system_error>

#include "tools/nimauthctl/command_line.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/help.h"
#include "tools/nimauthctl/presentation.h"
#include "tools/nimauthctl/questions.h"
#include "tools/nimauthctl/report.h"
#include "tools/nimauthctl/standard_streams.h"

namespace nimbrel::nimauthctl {
namespace {

// What is shown in the end.
struct Display {
    std::string output;
    std::string errors;
    ExitCode exitCode = ExitCode::Ok;
    int signal = 0;  // ends the process after all is shown
};

Display Refused(const Settings& settings) {
    const Failure failure = DescribeCurrentException();
    if (settings.json) return {FailureAsJson(failure), "", failure.exitCode};
    return {"", FailureAsText(failure, UsesColor(settings, STDERR_FILENO)), failure.exitCode};
}

void CheckUser(const Command& command) {
    if (!command.needsRoot || geteuid() == 0) return;
    const char* const cause = command.changes ? "it changes files of the host that only root may write"
                                              : "it reads files that only root may read";
    throw ToolError(ExitCode::Permission, "only root may run 'nimauthctl " + command.name + "'", cause,
                    "run it again as root, for example with sudo");
}

// A preview changes nothing: it is an answer.
Display Show(const CommandLine& line, const Report& report, ExitCode exitCode) {
    const Settings& settings = line.invocation.Global();
    const bool confirms = line.command->changes && !line.invocation.Has("dry-run");
    const bool silent = settings.quiet && !settings.json && confirms && exitCode == ExitCode::Ok;
    return {silent ? "" : Present(report, settings), PresentFailures(report, settings), exitCode};
}

Display RunCommand(const CommandLine& line) {
    const Settings& settings = line.invocation.Global();
    try {
        CheckUser(*line.command);
        WatchWorkItems();
        Report report;
        const ExitCode exitCode = line.command->run(line.invocation, report);
        return Show(line, report, exitCode);
    } catch (const InterruptedFailure& interruption) {
        Display display = Refused(settings);
        display.signal = interruption.Signal();
        return display;
    } catch (...) {
        return Refused(settings);
    }
}

std::string HelpFor(const CommandLine& line) {
    if (line.command != nullptr) return CommandHelp(*line.command);
    if (line.group != nullptr) return GroupHelp(*line.group);
    return OverviewHelp();
}

Display ShowVersion(bool json) {
    if (!json) return {"nimauthctl " NIMAUTHCTL_VERSION "\n", "", ExitCode::Ok};
    Report report;
    report.Text("version", NIMAUTHCTL_VERSION);
    return {report.AsJson(), "", ExitCode::Ok};
}

Display CarryOut(const std::vector<std::string>& words) {
    CommandLine line;
    try {
        line = ParseCommandLine(words);
    } catch (...) {
        return Refused({.json = AsksForJson(words)});
    }
    switch (line.request) {
        case CommandLine::Request::Help:
            return {HelpFor(line), "", ExitCode::Ok};
        case CommandLine::Request::Version:
            return ShowVersion(line.invocation.Global().json);
        case CommandLine::Request::Run:
            break;
    }
    return RunCommand(line);
}

}  // namespace

int RunTool(const std::vector<std::string>& words) {
    const Display display = CarryOut(words);
    const int error = WriteAll(STDOUT_FILENO, display.output);
    WriteError(display.errors);
    if (display.signal != 0) static_cast<void>(std::raise(display.signal));
    if (error == 0) return static_cast<int>(display.exitCode);
    WriteError("error: unable to write to standard output: " + std::generic_category().message(error) + '\n');
    return static_cast<int>(ExitCode::Failure);
}

}  // namespace nimbrel::nimauthctl
