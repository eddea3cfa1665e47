// The tool's own code in a child of the test: as truthful as a process of its own for everything but its start, which
// takes longer than most commands.

#ifndef TESTS_SYSTEM_NIMAUTHCTL_FORKED_TOOL_H_
#define TESTS_SYSTEM_NIMAUTHCTL_FORKED_TOOL_H_

#include <sys/types.h>

#include <string>
#include <vector>

namespace nimbrel::testing {

struct ForkedResult {
    int exitStatus = -1;  // -1 if a signal ended it
    int signal = 0;
    std::string output;
    std::string errors;
};

// Runs the words with `input` as standard input, as `user` if it is not 0. What takes longer than `seconds` gets SIGTERM,
// as a person would end it, and after ten times as long SIGKILL.
//
// Threads: call it from a process with one thread.
ForkedResult RunForkedTool(const std::vector<std::string>& words, const std::string& input, uid_t user, int seconds);

// A shell's words of "nimauthctl ...", up to a pipe or a redirection.
std::vector<std::string> WordsOf(const std::string& commandLine);

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_NIMAUTHCTL_FORKED_TOOL_H_
