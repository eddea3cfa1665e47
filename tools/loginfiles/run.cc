#include "tools/loginfiles/run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {
namespace {

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// How the program starts: default signals, in a session of its own, with /dev/null, and both outputs in one pipe.
class StartSettings {
 public:
    explicit StartSettings(int output) {
        posix_spawn_file_actions_init(&_actions);
        posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&_actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&_actions, output, STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&_actions, STDERR_FILENO + 1);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&_attributes);
        posix_spawnattr_setsigmask(&_attributes, &none);
        posix_spawnattr_setsigdefault(&_attributes, &all);
        posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    StartSettings(const StartSettings&) = delete;
    StartSettings& operator=(const StartSettings&) = delete;
    ~StartSettings() {
        posix_spawn_file_actions_destroy(&_actions);
        posix_spawnattr_destroy(&_attributes);
    }

    pid_t Start(const std::vector<std::string>& words, const std::vector<std::string>& environment) const {
        pid_t child = -1;
        const int error = posix_spawn(&child, words[0].c_str(), &_actions, &_attributes, Pointers(words).data(),
                                      Pointers(environment).data());
        if (error != 0) ThrowSystemError("run", words[0], error);
        return child;
    }

 private:
    posix_spawn_file_actions_t _actions = {};
    posix_spawnattr_t _attributes = {};
};

class Descriptor {
 public:
    explicit Descriptor(int number) : _number(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    int Number() const { return _number; }
    void Close() {
        if (_number >= 0) close(_number);
        _number = -1;
    }

 private:
    int _number;
};

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
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    std::vector<std::string> variables = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C", "HOME=/root"};
    variables.insert(variables.end(), environment.begin(), environment.end());
    const pid_t child = StartSettings(writing.Number()).Start(words, variables);
    writing.Close();
    RunResult result;
    result.output = ReadToEnd(reading.Number());
    result.status = WaitFor(child);
    return result;
}

}  // namespace nimbrel::logins
