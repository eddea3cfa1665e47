// The system calls that an action makes on one descriptor, seen by a tracing parent.
//
//     const auto calls = TracedCalls(descriptor, [&] { stream << policy; });
//
// The action runs in a child process: its changes to memory are lost, what it writes to the descriptor is not.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_TRACED_CALLS_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_TRACED_CALLS_H_

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <vector>

struct TracedCall {
    std::uint64_t number;  // SYS_write, ...
    std::uint64_t third;   // the third argument: for a write, the size

    bool operator==(const TracedCall&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const TracedCall& call) {
    return stream << "call " << call.number << " of " << call.third;
}

// A child process that is traced by this one, and killed in the end.
class TracedChild {
 public:
    template <typename Action>
    explicit TracedChild(Action action) : _child(fork()) {
        if (_child < 0) throw std::runtime_error("fork failed");
        if (_child > 0) return;
        const pid_t self = getpid();
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(2);
        syscall(SYS_kill, self, SIGSTOP);
        action();
        syscall(SYS_kill, self, SIGSTOP);
        _exit(0);
    }
    TracedChild(const TracedChild&) = delete;
    TracedChild& operator=(const TracedChild&) = delete;
    ~TracedChild() {
        kill(_child, SIGKILL);
        waitpid(_child, nullptr, 0);
    }

    void StopAtSystemCalls() { Require(Stop() == SIGSTOP && Trace(PTRACE_SETOPTIONS, kOptions) == 0); }

    // Runs on to the next entry into a system call or return from one; false at the end of the action.
    bool Next(__ptrace_syscall_info& info) {
        Require(Trace(PTRACE_SYSCALL, 0) == 0);
        const int signal = Stop();
        if (signal == SIGSTOP) return false;
        Require(signal == (SIGTRAP | 0x80) && ptrace(PTRACE_GET_SYSCALL_INFO, _child, sizeof info, &info) > 0);
        return true;
    }

 private:
    static constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;

    static void Require(bool success) {
        if (!success) throw std::runtime_error("the child cannot be traced");
    }

    long Trace(__ptrace_request request, long data) { return ptrace(request, _child, nullptr, data); }

    // The signal that the child stopped with; 0 if it ended.
    int Stop() {
        int status = 0;
        return waitpid(_child, &status, 0) == _child && WIFSTOPPED(status) ? WSTOPSIG(status) : 0;
    }

    pid_t _child;
};

// Throws `std::runtime_error` when the child cannot be traced or ends before the action does.
template <typename Action>
std::vector<TracedCall> TracedCalls(int descriptor, Action action) {
    TracedChild child(action);
    child.StopAtSystemCalls();
    std::vector<TracedCall> calls;
    for (__ptrace_syscall_info info{}; child.Next(info);) {
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
        if (info.entry.args[0] != static_cast<std::uint64_t>(descriptor)) continue;
        calls.push_back({info.entry.nr, info.entry.args[2]});
    }
    return calls;
}

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_TRACED_CALLS_H_
