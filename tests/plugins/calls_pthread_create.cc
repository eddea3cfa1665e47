#include <pthread.h>

#include "plugins/calls.h"

namespace nimbrel::authentication::test {

CreateCalls& Creates() {
    static CreateCalls calls;
    return calls;
}

extern "C" int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                                     void* argument) {
    CreateCalls& calls = Creates();
    calls.count.Add();
    if (calls.result != 0) return calls.result;
    return __real_pthread_create(thread, attributes, start, argument);
}

}  // namespace nimbrel::authentication::test
