// Runs a program as a person or a script would: with arguments, input, open descriptors or a terminal of its own, and
// returns everything that came out of it.
//
//     const ProgramResult result = RunProgram("/usr/bin/nimauthctl", {.arguments = {"store", "show"}});
//     EXPECT_EQ(0, result.exitStatus) << result.errors;
//
// Threads: call it from a process with one thread; the child runs code between fork and exec.

#ifndef TESTS_SUPPORT_RUN_PROGRAM_H_
#define TESTS_SUPPORT_RUN_PROGRAM_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace nimbrel::testing {

// One step of a talk with a program at its terminal.
struct TerminalStep {
    std::string expect;                            // waits until the terminal shows this, behind the last step's text
    std::string type;                              // then types this
    std::function<void(pid_t)> beforeTyping = {};  // called in between, while the program waits
};

// Called once, with the program's process, when standard output (or error) holds the text.
struct OutputStep {
    std::string expect = {};
    std::function<void(pid_t)> call = {};
};

struct ProgramOptions {
    std::vector<std::string> arguments = {};
    std::string input = {};                       // standard input, a pipe; closed behind the last byte
    std::map<int, std::string> descriptors = {};  // further pipes to read, by their numbers in the program
    std::vector<TerminalStep> terminal = {};      // if not empty, the program gets a controlling terminal
    bool outputOnTerminal = false;                // standard output and error are that terminal, of 80 columns
    std::vector<std::string> environment = {};    // "NAME=value", added to this process's
    std::string outputPath = {};                  // standard output goes to this file, as to /dev/full
    std::vector<int> closed = {};                 // standard descriptors that are closed
    bool readNoOutput = false;                    // standard output is a pipe that nobody reads
    uid_t user = 0;  // runs as this user without privilege, if not 0; files must forbid it by their mode
    std::function<void(pid_t)> beforeInput = {};  // called when the program runs and has read nothing yet
    OutputStep onOutput = {};
    OutputStep onErrors = {};
    std::chrono::seconds limit{60};  // killed then
};

struct ProgramResult {
    int exitStatus = -1;  // -1 if a signal ended it
    int signal = 0;
    bool limitReached = false;
    std::string output;
    std::string errors;
    std::string terminal;  // everything the terminal showed
    std::chrono::milliseconds took{0};
};

// How GoogleTest shows it.
void PrintTo(const ProgramResult& result, std::ostream* stream);

// Throws `std::system_error` if the program cannot be started.
ProgramResult RunProgram(const std::string& path, const ProgramOptions& options = {});

}  // namespace nimbrel::testing

#endif  // TESTS_SUPPORT_RUN_PROGRAM_H_
