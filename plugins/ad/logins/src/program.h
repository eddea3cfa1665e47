// Runs another program for a bounded time, from inside a host process that may do with signals and children what it likes.

#ifndef NIMBREL_AD_LOGINS_PROGRAM_H_
#define NIMBREL_AD_LOGINS_PROGRAM_H_

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace nimbrel::ad::logins {

enum class ProgramEnd {
    Success,
    Failure,  // could not be started, or ended with another status than 0
    TimeOut,  // ended by force, because it took too long
};

// `words`: the program's path and its arguments. It gets no input, no descriptors, an environment of its own, a session
// of its own and no blocked signals; its output is dropped. Where the host process collects its children itself, the
// status is lost and counts as success.
ProgramEnd RunProgram(const std::vector<std::string>& words, std::chrono::milliseconds time);

// Asks a process (not necessarily a child) to end, and forces it to when it has not within `time`. True if it is gone, or
// was never there. `command` is what the process must be called: a pid that belongs to something else is left alone.
bool EndProcess(pid_t pid, const std::string& command, std::chrono::milliseconds time);

// What the process is called, as the kernel shows it; empty if there is none or it has ended.
std::string CommandOf(pid_t pid);

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_PROGRAM_H_
