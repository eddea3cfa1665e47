// Stand-ins for the calls that change files: the test counts them, fails one of them, or ends the process at one.

#ifndef TESTS_PLUGINS_AD_LOGINS_CALLS_H_
#define TESTS_PLUGINS_AD_LOGINS_CALLS_H_

namespace nimbrel::ad::test {

// What happens at the call number `step` (the first is 1) from now on; 0 for never.
struct Fault {
    int step = 0;
    int error = 0;  // the errno that the call fails with; 0 to end the process with `kKilled` instead
};
inline constexpr int kKilled = 42;

// Sets the fault and starts to count from the beginning.
void SetFault(Fault fault);
// The calls since then.
int Steps();

}  // namespace nimbrel::ad::test

#endif  // TESTS_PLUGINS_AD_LOGINS_CALLS_H_
