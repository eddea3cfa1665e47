// What went wrong, in the words of the failure itself, with its cause and what to do about it.

#ifndef NIMAUTHCTL_FAILURE_H_
#define NIMAUTHCTL_FAILURE_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "tools/nimauthctl/exit_code.h"

namespace nimbrel::nimauthctl {

struct Failure {
    std::string exception;   // the class, without its namespace: "LogonFailureException"
    std::uint64_t code = 0;  // the status, or 0
    std::string message;     // the exception's own text
    std::string where = {};  // the file or answer that it concerns, where the message does not say
    std::string cause = {};
    std::string remedy = {};
    std::string log = {};  // where more may stand; empty for what the tool itself found out
    ExitCode exitCode = ExitCode::Failure;

    bool operator==(const Failure&) const = default;
};

// The command line cannot be carried out as it stands.
class UsageError : public std::runtime_error {
 public:
    explicit UsageError(const std::string& message, std::string remedy = "")
        : std::runtime_error(message), _remedy(std::move(remedy)) {}

    const std::string& Remedy() const { return _remedy; }

 private:
    std::string _remedy;
};

// The tool's own finding.
class ToolError : public std::runtime_error {
 public:
    ToolError(ExitCode exitCode, const std::string& message, std::string cause, std::string remedy)
        : std::runtime_error(message), _exitCode(exitCode), _cause(std::move(cause)), _remedy(std::move(remedy)) {}

    ExitCode Code() const { return _exitCode; }
    const std::string& Cause() const { return _cause; }
    const std::string& Remedy() const { return _remedy; }

 private:
    ExitCode _exitCode;
    std::string _cause;
    std::string _remedy;
};

// A signal ended the command. Once this is shown the process ends by that signal, as its caller expects.
class InterruptedFailure : public ToolError {
 public:
    InterruptedFailure(int signal, const std::string& message, std::string cause, std::string remedy)
        : ToolError(ExitCode::Failure, message, std::move(cause), std::move(remedy)), _signal(signal) {}

    int Signal() const { return _signal; }

 private:
    int _signal;
};

// A failure that arose on another thread and was described there.
class CarriedFailure : public std::runtime_error {
 public:
    explicit CarriedFailure(Failure failure) : std::runtime_error(failure.message), _failure(std::move(failure)) {}

    const Failure& Described() const { return _failure; }

 private:
    Failure _failure;
};

// Describes the exception that is being handled; call it in a catch block. Never fails but for lack of memory.
Failure DescribeCurrentException();

// The same failure of a question to an authentication proxy or of a join through one: its status is explained as the
// proxy's. One without a status, or with one that is the same everywhere, stays as it is.
Failure OfProxy(Failure failure);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_FAILURE_H_
