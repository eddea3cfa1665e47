#include "log_lines.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace nimbrel::ad::test {
namespace {

std::mutex lock;  // guards what follows
std::vector<std::string> lines;

__attribute__((format(printf, 1, 0))) void Keep(const char* format, va_list arguments) {
    std::array<char, 1024> line = {};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    const std::lock_guard guard(lock);
    lines.emplace_back(line.data());
}

}  // namespace

std::vector<std::string> TakeLogLines() {
    const std::lock_guard guard(lock);
    return std::exchange(lines, {});
}

}  // namespace nimbrel::ad::test

extern "C" {

__attribute__((format(printf, 2, 3))) void __wrap_syslog(int priority, const char* format, ...);
__attribute__((format(printf, 3, 4))) void __wrap___syslog_chk(int priority, int check, const char* format, ...);

void __wrap_syslog(int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    nimbrel::ad::test::Keep(format, arguments);
    va_end(arguments);
}

void __wrap___syslog_chk(int, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    nimbrel::ad::test::Keep(format, arguments);
    va_end(arguments);
}

}  // extern "C"
