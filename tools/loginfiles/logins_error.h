// Why a change of the login files cannot be made, in an administrator's words.

#ifndef NIMBREL_LOGINS_LOGINS_ERROR_H_
#define NIMBREL_LOGINS_LOGINS_ERROR_H_

#include <stdexcept>
#include <string>
#include <utility>

namespace nimbrel::logins {

class LoginsError : public std::runtime_error {
 public:
    enum class Kind {
        Refused,  // a candidate that fails its trial, a file that cannot be edited without loss
        Changed,  // a file is not what the preview saw
        State,    // nothing to confirm or undo, or something waits for confirmation
        System,   // a system call or a program failed
    };

    LoginsError(Kind kind, const std::string& message, std::string remedy = "")
        : std::runtime_error(message), _kind(kind), _remedy(std::move(remedy)) {}

    Kind Reason() const { return _kind; }
    const std::string& Remedy() const { return _remedy; }

 private:
    Kind _kind;
    std::string _remedy;
};

// "Unable to <what> '<path>': <the system's text>".
[[noreturn]] void ThrowSystemError(const std::string& what, const std::string& path, int error);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_LOGINS_ERROR_H_
