// What reading a key-value file comes to, by the library and by the literal reader, in a form that can be compared.

#ifndef NIMAUTH_TESTS_UNIT_CONFIGURATION_OUTCOME_H_
#define NIMAUTH_TESTS_UNIT_CONFIGURATION_OUTCOME_H_

#include <sys/mman.h>
#include <unistd.h>

#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "authentication/configuration.h"
#include "authentication/exceptions.h"
#include "unit/literal_configuration.h"

struct Outcome {
    literal::Settings settings;
    std::string error;  // the text of the exception; empty where there was none

    bool operator==(const Outcome&) const = default;
};

// A text with the bytes that do not print as \xHH.
inline std::string Shown(std::string_view text) {
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte < 0x7F) {
            shown += character;
        } else {
            shown.append("\\x").append(1, "0123456789abcdef"[byte >> 4U]).append(1, "0123456789abcdef"[byte & 0xFU]);
        }
    }
    return shown;
}

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    if (!outcome.error.empty()) return stream << "error: " << outcome.error;
    stream << "{";
    for (const auto& [key, value] : outcome.settings) stream << " [" << Shown(key) << "]=[" << Shown(value) << "]";
    return stream << " }";
}

inline Outcome LiteralOutcome(const std::string& text) {
    std::istringstream stream(text);
    try {
        return {literal::Read(stream), ""};
    } catch (const literal::Malformed& error) {
        return {{}, error.what()};
    }
}

inline Outcome LibraryOutcome(const std::string& path) {
    try {
        const nimbrel::authentication::Configuration configuration(path);
        return {literal::Settings(configuration.begin(), configuration.end()), ""};
    } catch (const nimbrel::authentication::ConfigurationError& error) {
        return {{}, error.what()};
    }
}

// A file without a place in the file system, for reading many texts in little time.
class MemoryFile {
 public:
    MemoryFile() : _descriptor(memfd_create("configuration", MFD_CLOEXEC)) {
        if (_descriptor < 0) throw std::runtime_error("no memory file");
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(_descriptor); }

    void Put(std::string_view text) const {
        const auto size = static_cast<off_t>(text.size());
        if (pwrite(_descriptor, text.data(), text.size(), 0) != size || ftruncate(_descriptor, size) != 0) {
            throw std::runtime_error("cannot write the memory file");
        }
    }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(_descriptor); }

 private:
    int _descriptor;
};

#endif  // NIMAUTH_TESTS_UNIT_CONFIGURATION_OUTCOME_H_
