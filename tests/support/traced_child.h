// A child process that is followed from system call to system call, and interfered with at any of them.
//
//     TracedChild child([] { Work(); _exit(0); });
//     child.StopAtSystemCalls();
//     for (__ptrace_syscall_info info{}; child.Next(info);) {
//         if (info.op == PTRACE_SYSCALL_INFO_ENTRY && info.entry.nr == SYS_fsync) child.Fail(EIO);
//     }
//
// The action runs in the child: its changes to memory are lost, what it writes to descriptors and files is not. Nothing
// of the child outlives the object.
//
// Throws `std::runtime_error` when the child cannot be traced, ends while it is followed, or meets a signal.

#ifndef TESTS_SUPPORT_TRACED_CHILD_H_
#define TESTS_SUPPORT_TRACED_CHILD_H_

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "support/leave_child.h"

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
        LeaveChild(0);
    }
    TracedChild(const TracedChild&) = delete;
    TracedChild& operator=(const TracedChild&) = delete;
    ~TracedChild() { Kill(); }

    void StopAtSystemCalls() { Require(Stop() == SIGSTOP && Trace(PTRACE_SETOPTIONS, kOptions) == 0); }

    // Runs on to the next entry into a system call or return from one; false at the end of the action.
    bool Next(__ptrace_syscall_info& info) {
        Require(Trace(PTRACE_SYSCALL, 0) == 0);
        const int signal = Stop();
        if (signal == SIGSTOP) return false;
        Require(signal == (SIGTRAP | 0x80) && ptrace(PTRACE_GET_SYSCALL_INFO, _child, sizeof info, &info) > 0);
        return true;
    }

#ifdef __x86_64__
    // At the entry into a call: the child is told that it failed with `error`. The call is not made, but for `close`,
    // which gives the descriptor back whatever it returns.
    void Fail(int error) {
        __ptrace_syscall_info info{};
        Require(ptrace(PTRACE_GET_SYSCALL_INFO, _child, sizeof info, &info) > 0 &&
                info.op == PTRACE_SYSCALL_INFO_ENTRY);
        if (info.entry.nr != SYS_close) SetRegister(offsetof(user_regs_struct, orig_rax), -1);
        Require(Next(info));
        SetRegister(offsetof(user_regs_struct, rax), -error);
    }
#endif

    pid_t Process() const { return _child; }

    // The word of the child's memory at this address.
    long Peek(std::uint64_t address) {
        errno = 0;
        const long word = Trace(PTRACE_PEEKDATA, 0, reinterpret_cast<void*>(address));
        Require(errno == 0);
        return word;
    }

    // Lets the child run on alone; returns what `waitpid` tells of its end.
    int RunOn() {
        Require(Trace(PTRACE_DETACH, 0) == 0);
        return End();
    }

    // Ends the child where it stands: a call that it was about to enter is not made.
    void Kill() {
        if (_child <= 0) return;
        kill(_child, SIGKILL);
        End();
    }

 private:
    static constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;

    static void Require(bool success) {
        if (!success) throw std::runtime_error("the child cannot be traced");
    }

    long Trace(__ptrace_request request, long data, void* address = nullptr) {
        return ptrace(request, _child, address, data);
    }

#ifdef __x86_64__
    void SetRegister(std::size_t offset, long value) {
        Require(ptrace(PTRACE_POKEUSER, _child, offsetof(user, regs) + offset, value) == 0);
    }
#endif

    // The signal that the child stopped with; 0 if it ended.
    int Stop() {
        int status = 0;
        return waitpid(_child, &status, 0) == _child && WIFSTOPPED(status) ? WSTOPSIG(status) : 0;
    }

    int End() {
        int status = 0;
        waitpid(std::exchange(_child, -1), &status, 0);
        return status;
    }

    pid_t _child;
};

#endif  // TESTS_SUPPORT_TRACED_CHILD_H_
