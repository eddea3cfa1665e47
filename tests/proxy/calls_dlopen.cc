#include <dlfcn.h>

#include "proxy/journal.h"

extern "C" {

void* __real_dlopen(const char* path, int flags);

void* __wrap_dlopen(const char* path, int flags) {
    void* const library = __real_dlopen(path, flags);
    if ((flags & RTLD_NOLOAD) != 0) return library;  // the test's own question
    std::string line = "dlopen " + std::string(path);
    if (flags != (RTLD_LAZY | RTLD_GLOBAL)) line += " flags " + std::to_string(flags);
    if (library == nullptr) line += " failed";
    nimbrel::authentication::test::Journal::Add(line);
    return library;
}

}  // extern "C"
