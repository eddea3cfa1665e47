// libpam waits after a wrong password, in a select without descriptors. Preloaded, this one does not wait.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>
#include <sys/select.h>

typedef int Select(int, fd_set*, fd_set*, fd_set*, struct timeval*);

__attribute__((visibility("default"))) int select(int count, fd_set* readers, fd_set* writers, fd_set* exceptions,
                                                  struct timeval* wait) {
    if (!readers && !writers && !exceptions) return 0;
    Select* next = NULL;
    *(void**)&next = dlsym(RTLD_NEXT, "select");
    return next(count, readers, writers, exceptions, wait);
}
