// Reading a password, and holding it no longer and no more visibly than needed.
//
// It is typed at the terminal without echo, or read from standard input or another descriptor. It never comes from the
// command line or the environment, where other users and logs could see it.

#ifndef NIMAUTHCTL_PASSWORD_H_
#define NIMAUTHCTL_PASSWORD_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace nimbrel::nimauthctl {

// A password in memory: in pages of its own that are kept out of swap (where the host's limits allow) and out of core
// dumps, wiped when the object is destroyed. While any is held the process cannot be dumped or traced by its own user.
//
// Threads: an object belongs to one thread at a time, and need not be destroyed by the one that made it: work that goes on
// after an interruption takes its password along and destroys it. Any number may be made and destroyed at once.
class Password {
 public:
    // The longest password in bytes.
    static constexpr std::size_t kMaximum = 1024;

    // Empty.
    Password();
    Password(const Password&) = delete;
    Password& operator=(const Password&) = delete;
    ~Password();

    // Never null; ends with a NUL. Valid until the object is destroyed.
    const char* Text() const { return _bytes; }
    std::string_view View() const { return {_bytes, _size}; }

    // Reads `descriptor` to its end; one line end behind the password is dropped. Throws `UsageError` if it cannot be
    // read, holds more than one line, a NUL byte, or more than `kMaximum` bytes. `source` names it in the message.
    void ReadAll(int descriptor, const std::string& source);

    // Asks on the process's terminal, with echo off, whatever standard input and output are. Throws `UsageError` if
    // there is no terminal or it ends without an answer. A signal that ends or stops the process restores the echo
    // first.
    void Ask(const std::string& prompt);

 private:
    void Append(char byte, const std::string& source);
    void DropLineEnd();
    void CheckContents(const std::string& source) const;

    char* _bytes;  // kMaximum + room for a line end and the NUL
    std::size_t _size = 0;
};

// Reads the password of `user` as the command line asks: `fromStdin`, from `descriptor` unless it is the empty text, or
// else by a prompt; with `confirm` a prompt asks twice, and throws `UsageError` if the two differ.
void ReadPassword(Password& password, const std::string& user, bool fromStdin, const std::string& descriptor,
                  bool confirm);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_PASSWORD_H_
