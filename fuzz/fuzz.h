// What the fuzz targets share. A target is one function that takes any bytes; the fuzzer's own main() makes bytes up,
// and that of tests/fuzz reads them from the corpus.

#ifndef NIMAUTH_FUZZ_FUZZ_H_
#define NIMAUTH_FUZZ_FUZZ_H_

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzzing {

// Ends the process unless the fact holds, so that the fuzzer keeps the input.
inline void Require(bool holds, const char* fact) {
    if (holds) return;
    std::cerr << "does not hold: " << fact << '\n';
    std::abort();
}

// The input taken apart. Fields are separated by the byte 0xff, which no text format knows.
class Input {
 public:
    Input(const std::uint8_t* data, std::size_t size) : _rest(reinterpret_cast<const char*>(data), size) {}

    bool AtEnd() const { return _rest.empty(); }

    // 0 at the end.
    unsigned Byte() {
        if (_rest.empty()) return 0;
        const auto byte = static_cast<unsigned char>(_rest.front());
        _rest.remove_prefix(1);
        return byte;
    }

    std::string Field() {
        const std::size_t end = _rest.find('\xff');
        const std::string field(_rest.substr(0, end));
        _rest.remove_prefix(end == std::string_view::npos ? _rest.size() : end + 1);
        return field;
    }

    std::string Rest() {
        const std::string rest(_rest);
        _rest = {};
        return rest;
    }

 private:
    std::string_view _rest;
};

inline bool HasControlCharacters(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return true;
    }
    return false;
}

// A folder in memory where there is one, so that a target which makes files is no slower than it must be.
class ScratchFolder {
 public:
    ScratchFolder() : _path(Parent() + "/nimauth-fuzz.XXXXXX") {
        if (mkdtemp(_path.data()) == nullptr) throw std::runtime_error("no folder at " + _path);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    std::string operator/(const std::string& name) const { return _path + '/' + name; }

 private:
    static std::string Parent() {
        const bool memory = access("/dev/shm", W_OK | X_OK) == 0;
        return memory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    }

    std::string _path;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline void WriteFile(const std::string& path, std::string_view text) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    stream.close();
    if (!stream) throw std::runtime_error("cannot write " + path);
}

}  // namespace fuzzing

#endif  // NIMAUTH_FUZZ_FUZZ_H_
