#include "plugins/calls.h"

namespace nimbrel::authentication::test {

ClockCalls& Clock() {
    static ClockCalls calls;
    return calls;
}

extern "C" int __real_gettimeofday(timeval* now, void* zone);
extern "C" int __wrap_gettimeofday(timeval* now, void* zone) {
    if (!Clock().fixed) return __real_gettimeofday(now, zone);
    *now = Clock().now;
    return 0;
}

}  // namespace nimbrel::authentication::test
