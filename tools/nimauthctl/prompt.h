// The process's controlling terminal with its echo off.

#ifndef NIMAUTHCTL_PROMPT_H_
#define NIMAUTHCTL_PROMPT_H_

#include <termios.h>

#include <string>

namespace nimbrel::nimauthctl {

// While an object lives, what is typed is not shown. Signals that end or stop the process are held back meanwhile and
// take effect once the echo is back; a stopped process that continues finds the echo on and is asked no further.
//
// Threads: one object in the process at a time.
class SilentTerminal {
 public:
    SilentTerminal();
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;
    // Brings back the echo and delivers a signal that arrived.
    ~SilentTerminal();

    // False where the process has no terminal, or one whose echo cannot be turned off.
    bool IsOpen() const { return _silenced; }

    // Shows the text; control characters in it are shown as \xNN.
    void Show(const std::string& text);

    // False at the end of the input, after an error, or when a signal wants to end the process.
    bool ReadByte(char* byte);

 private:
    int _descriptor;
    termios _before{};
    bool _silenced = false;
};

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_PROMPT_H_
