// The checks that tell whether a host can join, each a function of its own in one table. A check changes nothing.

#ifndef NIMAUTHCTL_COMMANDS_CHECK_TABLE_H_
#define NIMAUTHCTL_COMMANDS_CHECK_TABLE_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/nimauthctl/command.h"

namespace nimbrel::nimauthctl {

enum class Verdict { Pass, Warn, Fail };

// What a check found. The remedy is for what did not pass, and the exit status is what a failed one ends the command
// with.
struct Finding {
    Verdict verdict = Verdict::Pass;
    std::string text;
    std::string remedy = {};
    ExitCode exitCode = ExitCode::Failure;
};

Finding Pass(std::string text);
Finding Warn(std::string text, std::string remedy);
Finding Fail(ExitCode exitCode, std::string text, std::string remedy);

// What the checks are about.
struct CheckTarget {
    const Invocation& invocation;
    std::string domain;  // empty if none was given: then the checks that need one are left out
};

struct Check {
    std::string_view name;
    bool needsDomain;
    // Whatever it throws is a failed check, described as any other failure.
    Finding (*run)(const CheckTarget& target);
};

// In the order in which they are shown.
std::span<const Check> PreflightChecks();

// The rules for the host's own name, for whoever knows the names already. `fullName` is the resolver's.
Finding CheckShortName(const std::string& hostName, const std::string& fullName);
Finding CheckDefaultName(const std::string& hostName);
Finding CheckAccountName(const std::string& hostName);
Finding CheckFullName(const std::string& hostName, const std::string& fullName, const std::string& domain);

// What the kernel and the resolver call this host. The second throws `ToolError` if the name does not resolve.
std::string KernelHostName();
std::string ResolvedHostName(const CheckTarget& target);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_CHECK_TABLE_H_
