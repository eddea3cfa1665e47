// The end of a child process that shares exit handlers with its parent.

#ifndef TESTS_SUPPORT_LEAVE_CHILD_H_
#define TESTS_SUPPORT_LEAVE_CHILD_H_

#include <unistd.h>

// There in a coverage build alone; null in all others.
extern "C" __attribute__((weak, visibility("hidden"))) void __gcov_dump(void);

// Ends the process as `_exit` does, and keeps what a coverage build has counted.
[[noreturn]] inline void LeaveChild(int status) {
    if (&__gcov_dump != nullptr) __gcov_dump();
    _exit(status);
}

#endif  // TESTS_SUPPORT_LEAVE_CHILD_H_
