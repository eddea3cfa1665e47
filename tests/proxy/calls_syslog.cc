#include <syslog.h>

#include <cstdarg>
#include <cstdio>

#include "proxy/journal.h"

namespace {

// The priority exactly: a facility or another level shows as its number.
std::string NameOf(int priority) {
    switch (priority) {
        case LOG_ERR:
            return "error";
        case LOG_WARNING:
            return "warning";
        case LOG_INFO:
            return "info";
        case LOG_DEBUG:
            return "debug";
        default:
            return "priority " + std::to_string(priority);
    }
}

}  // namespace

extern "C" __attribute__((format(printf, 2, 3))) void __wrap_syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char line[4096];
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    nimbrel::authentication::test::Journal::Add(NameOf(priority) + ": " + line);
}
