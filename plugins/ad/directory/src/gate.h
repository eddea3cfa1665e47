// Keeps forks and the end of the process from falling into a call's use of the Kerberos and LDAP libraries.
//
// Those libraries hold locks of their own while they work, and free their tables when the process exits; a query may
// run on a detached thread at either moment. So a call does its work inside the gate and steps outside whenever it
// waits for the network, which is where a stopped controller holds it. A fork waits until nobody is inside. So does
// exit, two seconds at the longest, and nobody comes in again after it: a thread that was outside then stays there
// until the process is gone.
//
// Threads: any. Not recursive.

#ifndef NIMBREL_AD_GATE_H_
#define NIMBREL_AD_GATE_H_

namespace nimbrel::ad {

// One operation. Throws `AdError` (1359) when the process is exiting.
class InsideGate {
 public:
    InsideGate();
    InsideGate(const InsideGate&) = delete;
    InsideGate& operator=(const InsideGate&) = delete;
    ~InsideGate();
};

// One wait of an operation that is inside; without effect on a thread that is not.
class OutsideGate {
 public:
    OutsideGate();
    OutsideGate(const OutsideGate&) = delete;
    OutsideGate& operator=(const OutsideGate&) = delete;
    ~OutsideGate();

 private:
    bool _wasInside;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_GATE_H_
