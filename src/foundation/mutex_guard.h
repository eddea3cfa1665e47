// Holds a POSIX mutex for a scope, and frees it whichever way the scope is left: a thread that is cancelled while it waits
// for a condition has the mutex again when it unwinds.

#ifndef NIMAUTH_FOUNDATION_MUTEX_GUARD_H_
#define NIMAUTH_FOUNDATION_MUTEX_GUARD_H_

#include <pthread.h>

namespace nimbrel::authentication {

class MutexGuard {
 public:
    explicit MutexGuard(pthread_mutex_t& mutex) : _mutex(mutex) { pthread_mutex_lock(&_mutex); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;
    ~MutexGuard() { pthread_mutex_unlock(&_mutex); }

 private:
    pthread_mutex_t& _mutex;
};

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_FOUNDATION_MUTEX_GUARD_H_
