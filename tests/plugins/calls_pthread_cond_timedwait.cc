#include <pthread.h>

#include "plugins/calls.h"

namespace nimbrel::authentication::test {

TimedWaitCalls& TimedWaits() {
    static TimedWaitCalls calls;
    return calls;
}

extern "C" int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*);
extern "C" int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             const timespec* deadline) {
    TimedWaitCalls& calls = TimedWaits();
    calls.count.Add();
    if (calls.keepDeadline) calls.deadline = *deadline;
    if (calls.result != 0) return calls.result;
    return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

}  // namespace nimbrel::authentication::test
