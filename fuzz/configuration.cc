// Any text must read the same to the library as to the literal reader.

#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "unit/configuration_outcome.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    const std::string text(reinterpret_cast<const char*>(data), size);
    file.Put(text);

    const Outcome library = LibraryOutcome(file.Path());
    const Outcome expected = LiteralOutcome(text);
    if (library == expected) return 0;
    std::cerr << "library " << library << "\nliteral " << expected << "\n";
    std::abort();
}
