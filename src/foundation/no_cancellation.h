// A stretch in which the calling thread is not cancelled: closing a file or a library is a cancellation point, and happens
// in destructors, which a forced unwind may not leave. A cancellation that is asked for meanwhile takes effect afterwards.

#ifndef NIMAUTH_FOUNDATION_NO_CANCELLATION_H_
#define NIMAUTH_FOUNDATION_NO_CANCELLATION_H_

#include <pthread.h>

namespace nimbrel::authentication {

class NoCancellation {
 public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;
    ~NoCancellation() { pthread_setcancelstate(_before, nullptr); }

 private:
    int _before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_FOUNDATION_NO_CANCELLATION_H_
