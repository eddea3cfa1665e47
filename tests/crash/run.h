// Runs of an operation, each in a process of its own.

#ifndef TESTS_CRASH_RUN_H_
#define TESTS_CRASH_RUN_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "crash/disk.h"
#include "crash/report.h"
#include "support/traced_child.h"

namespace nimbrel::crash {

// A system call of the operation. How much memory is asked of the kernel differs from run to run, so that a call is
// known by its place among those of its kind.
struct Call {
    std::uint64_t number;    // SYS_write, ...
    int occurrence;          // from 1
    bool takesLock = false;  // a `fcntl` that locks
    bool creates = false;    // an `openat` that may create the file
    bool changesDisk = false;
};

// How the process ended, and what it told.
struct Ending {
    std::string how;      // "exited", or "killed by signal 6", ...
    bool reached = true;  // the call was made at all; else the operation ran undisturbed
    std::optional<Report> report;
};

// One operation on one host, which each run finds in the old state.
class Runner {
 public:
    // Makes the old state. Throws `std::runtime_error` if there is anything in the operation's folders before.
    explicit Runner(const Operation& operation);
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;
    // Leaves the folders empty.
    ~Runner();

    // The host as it is.
    Observation Look();
    // Undisturbed. All of these but the last put the old state back first.
    Ending Run();
    std::vector<Call> Calls();
    // Killed at the entry into the call; the report is that of a process that came after it, and has no attempt.
    Ending KillAt(const Call& call);
    // The same, and the power fails: what was not synchronised is lost. Without a call it fails when the operation has
    // just ended.
    Ending CutPowerAt(const Call* call, Loss loss);
    Ending FailCall(const Call& call, int error);
    Ending FailAllocation(long number, bool onwards);

 private:
    void Restore();
    Ending RunToTheEnd(TracedChild& child, bool reached);
    // For the child: the operation, between two marks for its tracer.
    [[noreturn]] void RunMarked(long failingAllocation, bool onwards);
    // For the child: looks, goes on to the new state, looks again.
    [[noreturn]] void LookAndGoOn(Report& report);
    Observation Observe() const;
    template <typename Work>
    Ending InChild(Work work);
    // For what comes after: another process on the same host.
    Ending LookAfterwards();

    const Operation& _operation;
    std::optional<Snapshot> _old;
    SharedReport _shared;
};

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_RUN_H_
