/* Its queries cancel the thread on which the library called them, at the next cancellation point. */
#include "leaving.h"

#include <pthread.h>

static void Leave(void) {
    pthread_cancel(pthread_self());
    for (;;) pthread_testcancel();
}
