// Turning directory logins on or off: from the plan to the journal's entry.

#ifndef NIMAUTHCTL_COMMANDS_LOGINS_CHANGE_H_
#define NIMAUTHCTL_COMMANDS_LOGINS_CHANGE_H_

#include <string>
#include <vector>

#include "tools/loginfiles/plan.h"
#include "tools/nimauthctl/command.h"

namespace nimbrel::nimauthctl {

enum class LoginsAction { Enable, Disable };

// Plans, tries and, unless --dry-run was given, applies the change; waits for nothing.
ExitCode ChangeLogins(LoginsAction action, const Invocation& invocation, Report& report);

// The options that both commands take.
std::vector<Option> ChangeOptions(const std::string& forceHelp);

// A number for what a plan would do: equal plans on equal files have equal ones.
std::string PreviewNumber(const std::vector<logins::Change>& changes);

// The unified diffs of all files, and a line for each whose mode or owner changes.
std::string Diffs(const std::vector<logins::Change>& changes);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_LOGINS_CHANGE_H_
