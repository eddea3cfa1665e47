// An operation is run again and again, and cut short at another point each time: the process is killed at a system call,
// the machine's power fails there, the call fails, or an allocation does. After each the host is looked at:
//
//   - the state is the old one or the new one, and the product can read it;
//   - every file has the mode and the owner that it has in one of the two;
//   - the operation succeeded and the state is new, or it threw what it is documented to throw;
//   - no descriptor is left open;
//   - the next call succeeds, in the same process where it is still there, and leaves nothing behind that a host has not
//     where all went well.
//
// Each run is a process of its own, forked from this one.
//
// Threads: one; the test program must not have others.

#ifndef TESTS_CRASH_SWEEP_H_
#define TESTS_CRASH_SWEEP_H_

#include <cstddef>
#include <string>
#include <vector>

#include "crash/operation.h"

namespace nimbrel::crash {

struct SweepResult {
    std::size_t points = 0;  // where the operation can be cut short
    std::size_t tried = 0;   // where it was
    std::vector<std::string> violations = {};
};

// Killed on the way into each of its system calls. Throws `std::runtime_error` when the operation does not succeed
// undisturbed; so do the others.
SweepResult KillAtEachCall(const Operation& operation, std::size_t stride = 1);

// The same at each of its calls that change the disk, and when it has just ended, with the power of the machine: what was
// not synchronised is lost. An operation that has ended is on the disk.
SweepResult CutPowerAtEachCall(const Operation& operation, std::size_t stride = 1);

// Each call fails once with each error that it can fail with (EACCES, EINTR, EIO, EMFILE, ENOMEM, ENOSPC).
SweepResult FailEachCall(const Operation& operation, std::size_t stride = 1);

// Each allocation fails, alone and with all that follow. At most `limit` points of each kind, evenly spread.
SweepResult FailEachAllocation(const Operation& operation, std::size_t limit);

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_SWEEP_H_
