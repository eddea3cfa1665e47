#include <fcntl.h>

#include <cstdarg>

#include "proxy/journal.h"

extern "C" {

int __real_open(const char* path, int flags, ...);

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    nimbrel::authentication::test::Journal::Add("open " + std::string(path));
    return __real_open(path, flags, mode);
}

}  // extern "C"
