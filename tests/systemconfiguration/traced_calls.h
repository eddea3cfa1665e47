// The system calls that an action makes on one descriptor, seen by a tracing parent.
//
//     const auto calls = TracedCalls(descriptor, [&] { stream << policy; });
//
// The action runs in a child process: its changes to memory are lost, what it writes to the descriptor is not.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_TRACED_CALLS_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_TRACED_CALLS_H_

#include <cstdint>
#include <ostream>
#include <vector>

#include "support/traced_child.h"

struct TracedCall {
    std::uint64_t number;  // SYS_write, ...
    std::uint64_t third;   // the third argument: for a write, the size

    bool operator==(const TracedCall&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const TracedCall& call) {
    return stream << "call " << call.number << " of " << call.third;
}

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
