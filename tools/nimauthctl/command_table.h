// The one list of all commands.

#ifndef NIMAUTHCTL_COMMAND_TABLE_H_
#define NIMAUTHCTL_COMMAND_TABLE_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/nimauthctl/command.h"

namespace nimbrel::nimauthctl {

// In the order of the help. Built at the first call.
const std::vector<Command>& Commands();

// The groups that the commands' names form, outer before inner.
const std::vector<CommandGroup>& CommandGroups();

// The options of every command.
const std::vector<Option>& GlobalOptions();

// Null if there is none of that name.
const Command* FindCommand(std::string_view name);
const CommandGroup* FindGroup(std::string_view name);

// "nimauthctl join [--if-needed] ... -U USER DOMAIN[/OU]".
std::string Synopsis(const Command& command);

// An option as help and manual page show it: "-U, --user", and what it does.
std::string ShownFlags(const Option& option);
std::string ShownHelp(const Option& option);

// What empty lines separate in a description.
std::vector<std::string> Paragraphs(const std::string& text);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMAND_TABLE_H_
