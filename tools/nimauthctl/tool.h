// The whole tool: reads a command line, carries it out, shows the result.

#ifndef NIMAUTHCTL_TOOL_H_
#define NIMAUTHCTL_TOOL_H_

#include <string>
#include <vector>

namespace nimbrel::nimauthctl {

// Returns the process's exit status. Everything is written by then. `words` are the command line without the program's
// name.
int RunTool(const std::vector<std::string>& words);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_TOOL_H_
