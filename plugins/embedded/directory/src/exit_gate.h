// Keeps the end of the process from pulling OpenSSL from under a running computation.
//
// A query may still run on a detached thread when the process exits, and OpenSSL's exit handler frees what the
// computation uses. So every use of OpenSSL that needs more than a plain function is made inside an `ExitGate`: the
// exit handler waits for those inside, a fraction of a second and ten at most, and whoever comes later finds the gate
// closed. It does not wait for the thread that exits, which may do so in a signal handler, inside.
//
// Threads: any. After a fork only the forking thread is inside in the child, if it was.

#ifndef NIMBREL_EMBEDDED_EXIT_GATE_H_
#define NIMBREL_EMBEDDED_EXIT_GATE_H_

namespace nimbrel::embedded {

class ExitGate {
 public:
    ExitGate();
    ExitGate(const ExitGate&) = delete;
    ExitGate& operator=(const ExitGate&) = delete;
    ~ExitGate();

    // False if the process is exiting: OpenSSL must not be used any more.
    bool IsOpen() const { return _open; }

 private:
    bool _open;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_EXIT_GATE_H_
