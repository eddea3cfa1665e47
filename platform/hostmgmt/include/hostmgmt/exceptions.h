// The root of the host platform's exceptions.
//
// Every library of the platform (configuration store, host management, network control) throws this class or one
// derived from it, so a caller can catch all platform failures by one type and log their `what()`.
//
// Threads: exceptions are values; any thread may throw, copy and read its own.

#ifndef HOSTMGMT_EXCEPTIONS_H_
#define HOSTMGMT_EXCEPTIONS_H_

#include <exception>
#include <string>

namespace HostMgmt::Lib {

// Header-only, with default visibility: each shared object that throws or catches it carries its type information, and
// the loader makes them one.
class __attribute__((visibility("default"))) HostMgmtException : public std::exception {
 public:
    // `message` is what `what()` returns; null is taken as the empty text.
    explicit HostMgmtException(const char* message) : _message(message == nullptr ? "" : message) {}

    const char* what() const noexcept override { return _message.c_str(); }

 private:
    std::string _message;
};

}  // namespace HostMgmt::Lib

#endif  // HOSTMGMT_EXCEPTIONS_H_
