// Help texts, made from the command table and folded to 80 columns.

#ifndef NIMAUTHCTL_HELP_H_
#define NIMAUTHCTL_HELP_H_

#include <string>

#include "tools/nimauthctl/command.h"

namespace nimbrel::nimauthctl {

// All commands, one line each.
std::string OverviewHelp();
// The commands of one group.
std::string GroupHelp(const CommandGroup& group);
// Everything about one command.
std::string CommandHelp(const Command& command);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_HELP_H_
