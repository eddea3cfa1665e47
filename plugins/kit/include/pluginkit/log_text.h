// A text that another machine or a user had a part in, made fit for one line of the system's log.
//
//     "x)\nsshd[1]: Accepted \x1b[31m"   ->   "x)?sshd[1]: Accepted ?[31m"
//
// Control characters, the line breaks of Unicode and bytes that are no UTF-8 become "?" each, so that nobody writes lines
// of his own there or steers the terminal that shows them. A text that is too long is cut and ends in "...".

#ifndef NIMBREL_PLUGINKIT_LOG_TEXT_H_
#define NIMBREL_PLUGINKIT_LOG_TEXT_H_

#include <array>
#include <cstddef>
#include <string_view>

namespace nimbrel::kit {

// Holds its text itself: what tells of exhausted memory must not need any.
class LogText {
 public:
    // With time, host and program before it the line keeps within the 1,024 bytes that every log takes.
    static constexpr std::size_t kMaximumSize = 900;

    explicit LogText(std::string_view text) noexcept;

    // Ends with a NUL.
    const char* Text() const noexcept { return _text.data(); }

 private:
    std::array<char, kMaximumSize + 4> _text;
};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_LOG_TEXT_H_
