// Keeps a fork from copying an open database into the child.
//
// SQLite remembers per process which locks it holds. A child that inherits that memory believes in locks that only its
// parent has, and may then write without any. So whoever opens a file for one operation does it inside a `ForkGate`: a
// fork waits until all are outside, and new ones wait for the fork.
//
// A fork from a signal handler cannot wait for the operation that the handler interrupted, and no fork waits for more than
// a minute. The child of such a fork may do anything but open a file again: its gates throw 1359.
//
// Threads: any. Not recursive: nothing that opens a gate may be called inside one.

#ifndef NIMBREL_EMBEDDED_FORK_GATE_H_
#define NIMBREL_EMBEDDED_FORK_GATE_H_

namespace nimbrel::embedded {

class ForkGate {
 public:
    ForkGate();
    ForkGate(const ForkGate&) = delete;
    ForkGate& operator=(const ForkGate&) = delete;
    ~ForkGate();
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_FORK_GATE_H_
