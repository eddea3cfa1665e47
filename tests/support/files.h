// Small files, as tests make and look at them. Everything here throws `std::runtime_error` naming the path.

#ifndef TESTS_SUPPORT_FILES_H_
#define TESTS_SUPPORT_FILES_H_

#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

inline std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Makes the file or replaces its bytes; its folder is there.
inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    if (!(stream << text << std::flush)) throw std::runtime_error("cannot write " + path);
}

// Of a link itself, not of what it leads to.
inline struct stat StatusOfFile(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) throw std::runtime_error("no file " + path);
    return status;
}

// The twelve permission bits.
inline mode_t ModeOf(const std::string& path) { return StatusOfFile(path).st_mode & 07777; }

#endif  // TESTS_SUPPORT_FILES_H_
