#include "plugins/calls.h"

namespace nimbrel::authentication::test {

SleepCalls& Sleeps() {
    static SleepCalls calls;
    return calls;
}

extern "C" unsigned __wrap_sleep(unsigned seconds) {
    SleepCalls& calls = Sleeps();
    calls.seconds.push_back(seconds);
    if (calls.rests.empty()) return 0;
    unsigned rest = calls.rests.front();
    calls.rests.pop_front();
    return rest;
}

}  // namespace nimbrel::authentication::test
