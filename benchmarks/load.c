// How long a process that has loaded nothing yet takes to load one shared object and all it needs, in nanoseconds.

#define _POSIX_C_SOURCE 200809L

#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

static long long Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fputs("usage: nimauth_load FILE\n", stderr);
        return 2;
    }
    const long long start = Now();
    if (dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) == NULL) {
        fprintf(stderr, "nimauth_load: %s\n", dlerror());
        return 1;
    }
    printf("%lld\n", Now() - start);
    return 0;
}
