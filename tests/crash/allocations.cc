#include "crash/allocations.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace nimbrel::crash {
namespace {

bool counting = false;
long counted = 0;
long failing = 0;
bool failingOnwards = false;

// Whether the allocation that is asked for is to fail.
bool Strikes() {
    if (!counting) return false;
    ++counted;
    if (failing == 0 || (failingOnwards ? counted < failing : counted != failing)) return false;
    errno = ENOMEM;
    return true;
}

}  // namespace

void FailAllocation(long number, bool onwards) {
    counted = 0;
    failing = number;
    failingOnwards = onwards;
    counting = true;
}

long StopAllocations() {
    counting = false;
    return counted;
}

}  // namespace nimbrel::crash

#ifdef NIMAUTH_CRASH_SANITIZED

void* operator new(std::size_t size) {
    void* const memory = nimbrel::crash::Strikes() ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

#else

// In the program itself, these stand before the C library's for every shared object.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
    return nimbrel::crash::Strikes() ? nullptr : __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
    return nimbrel::crash::Strikes() ? nullptr : __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) {
    return nimbrel::crash::Strikes() ? nullptr : __libc_realloc(memory, size);
}

}  // extern "C"

#endif
