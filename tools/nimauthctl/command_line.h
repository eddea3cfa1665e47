// From the words of a command line to the command and what it was given.

#ifndef NIMAUTHCTL_COMMAND_LINE_H_
#define NIMAUTHCTL_COMMAND_LINE_H_

#include <string>
#include <vector>

#include "tools/nimauthctl/command.h"

namespace nimbrel::nimauthctl {

struct CommandLine {
    enum class Request { Run, Help, Version };

    Request request = Request::Run;
    const Command* command = nullptr;     // null for the help of a group or of everything, and for the version
    const CommandGroup* group = nullptr;  // set for the help of a group
    Invocation invocation;
};

// Options of every command may stand before the command's name and after it. Throws `UsageError`. Its message never
// repeats a word that was not understood, which may be a password typed in the wrong place.
CommandLine ParseCommandLine(const std::vector<std::string>& words);

// Whether the words ask for JSON, even if they cannot be understood otherwise.
bool AsksForJson(const std::vector<std::string>& words);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMAND_LINE_H_
