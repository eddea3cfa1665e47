#include "tools/nimauthctl/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace nimbrel::nimauthctl {

void GuardStandardStreams() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) continue;
        // Opened the wrong way round, and kept open over an exec like any standard stream. The lowest free number is
        // the closed one.
        if (open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) != descriptor) _exit(1);
    }
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

int WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        const int error = errno;
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (error != EINTR) {
            return error;
        }
    }
    return 0;
}

void WriteError(std::string_view text) { static_cast<void>(WriteAll(STDERR_FILENO, text)); }

}  // namespace nimbrel::nimauthctl
