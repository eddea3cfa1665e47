// Any text must read, and be written again, the same by the library as by the literal reader and writer.

#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "systemconfiguration/nss_outcome.h"
#include "systemconfiguration/same_reading.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (!SameReading<LibraryNssReader, LiteralNssReader>(text, std::cerr)) std::abort();
    return 0;
}
