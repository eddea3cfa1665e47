// What strace saw of a program and of all that it started, as far as that is ours: calls that make descriptors.

#ifndef TESTS_SYSTEM_HARDENING_TRACE_H_
#define TESTS_SYSTEM_HARDENING_TRACE_H_

#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::testing {

// The calls that `ParseTrace` wants in the trace, for strace's option -e.
inline constexpr char kTracedCalls[] =
    "trace=open,openat,openat2,creat,socket,socketpair,accept,accept4,pipe,pipe2,dup,dup2,dup3,fcntl,epoll_create,"
    "epoll_create1,eventfd,eventfd2,inotify_init,inotify_init1,signalfd,signalfd4,timerfd_create,memfd_create,execve,"
    "clone,clone3,fork,vfork";

struct Call {
    std::string name;
    std::string arguments;  // as strace writes them
    int result = -1;

    std::string Text() const { return name + '(' + arguments + ") = " + std::to_string(result); }
    bool Has(std::string_view flag) const { return arguments.find(flag) != std::string::npos; }
};

// The calls that succeeded, without those of foreign programs: a process is foreign from its first `execve` of a
// program that is not in `own` on, and so are its children.
std::vector<Call> ParseTrace(const std::string& text, const std::vector<std::string>& own);

// Whether the call makes a descriptor that a program which is started later would get. The three standard ones, put in
// place for a child, are meant for it.
bool IsInherited(const Call& call);

// Whether the call may make a file and does not insist that it is a new one.
bool MayUseAnotherFile(const Call& call);

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_HARDENING_TRACE_H_
