// A stretch in which the calling thread is not cancelled: closing a file or a library is a cancellation point, and happens
// in destructors, which a forced unwind may not leave. A cancellation that is asked for meanwhile takes effect afterwards.
//
// For the insides of the platform libraries and of the library above them; not installed.

#ifndef NIMBREL_INTERNAL_NO_CANCELLATION_H_
#define NIMBREL_INTERNAL_NO_CANCELLATION_H_

#include <pthread.h>

namespace nimbrel::internal {

class NoCancellation {
 public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;
    ~NoCancellation() { pthread_setcancelstate(_before, nullptr); }

 private:
    int _before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace nimbrel::internal

#endif  // NIMBREL_INTERNAL_NO_CANCELLATION_H_
