#include "tools/loginfiles/run.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "pluginkit/descriptor.h"
#include "pluginkit/spawn_settings.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {
namespace {

std::string ReadToEnd(int number) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t count = read(number, buffer.data(), buffer.size());
        const int error = errno;
        if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
        if (count == 0 || (count < 0 && error != EINTR)) return text;
    }
}

int WaitFor(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        const int error = errno;
        if (error != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

RunResult Run(const std::vector<std::string>& words, const std::vector<std::string>& environment) {
    std::array<int, 2> ends{};
    const bool made = pipe2(ends.data(), O_CLOEXEC) == 0;
    const int error = errno;
    if (!made) ThrowSystemError("make a pipe for", words[0], error);
    const kit::Descriptor reading(ends[0]);
    kit::Descriptor writing(ends[1]);
    std::vector<std::string> variables = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C", "HOME=/root"};
    variables.insert(variables.end(), environment.begin(), environment.end());
    const pid_t child = kit::SpawnSettings(writing.Number()).Start(words, variables);
    const int failure = errno;
    if (child < 0) ThrowSystemError("run", words[0], failure);
    writing.Close();
    RunResult result;
    result.output = ReadToEnd(reading.Number());
    result.status = WaitFor(child);
    return result;
}

}  // namespace nimbrel::logins
