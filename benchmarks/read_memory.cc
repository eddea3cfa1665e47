// The most memory that reading a settings file takes at once, the settings themselves included, as JSON.
//
// Every `new` of this program is counted; the few hundred bytes that the C library takes for a stream's file are not.

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>

#include "authentication/configuration.h"
#include "benchmarks/settings_file.h"
#include "unit/literal_configuration.h"

namespace {

std::size_t taken = 0;
std::size_t most = 0;

}  // namespace

void* operator new(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    taken += malloc_usable_size(memory);
    most = std::max(most, taken);
    return memory;
}
void operator delete(void* memory) noexcept {
    taken -= malloc_usable_size(memory);
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace {

// How much `read` takes beyond what is taken already.
template <typename Read>
std::size_t MostTakenBy(const Read& read) {
    const std::size_t before = taken;
    most = taken;
    read();
    return most - before;
}

}  // namespace

int main() {
    const char* separator = "[";
    for (const long lines : {10L, 1000L, 1000000L}) {
        const SettingsFile file(lines);
        const std::string path = file.Plain();
        const std::size_t ours = MostTakenBy([&path] { const nimbrel::authentication::Configuration settings(path); });
        const std::size_t literally = MostTakenBy([&path] {
            std::ifstream stream(path);
            const literal::Settings settings = literal::Read(stream);
        });
        std::printf("%s{\"lines\": %ld, \"ours\": %zu, \"literal\": %zu}", separator, lines, ours, literally);
        separator = ",\n ";
    }
    std::printf("]\n");
}
