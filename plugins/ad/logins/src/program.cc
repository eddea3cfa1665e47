#include "program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "files.h"

namespace nimbrel::ad::logins {
namespace {

constexpr auto kForcedEndTime = std::chrono::seconds(1);
constexpr int kFirstOwnDescriptor = 3;

using Clock = std::chrono::steady_clock;

// A hold on a process, which no other process can slip into. glibc 2.36 declares its two functions for C only.
Descriptor Hold(pid_t pid) { return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))); }

bool Signal(const Descriptor& process, int signal) {
    return syscall(SYS_pidfd_send_signal, process.Number(), signal, nullptr, 0) == 0;
}

// True when the process has ended.
bool WaitFor(const Descriptor& process, std::chrono::milliseconds time) {
    const auto end = Clock::now() + time;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd entry = {process.Number(), POLLIN, 0};
        const int ready = poll(&entry, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

class SpawnSettings {
 public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&_actions);
        posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&_actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&_actions, kFirstOwnDescriptor);
        posix_spawnattr_init(&_attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&_attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&_attributes, &signals);
        posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&_actions);
        posix_spawnattr_destroy(&_attributes);
    }

    const posix_spawn_file_actions_t* Actions() const { return &_actions; }
    const posix_spawnattr_t* Attributes() const { return &_attributes; }

 private:
    posix_spawn_file_actions_t _actions = {};
    posix_spawnattr_t _attributes = {};
};

// -1 if it cannot be started.
pid_t Start(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    std::string language = "LC_ALL=C.UTF-8";
    char* environment[] = {path.data(), language.data(), nullptr};
    const SpawnSettings settings;
    pid_t pid = -1;
    if (posix_spawn(&pid, arguments[0], settings.Actions(), settings.Attributes(), arguments.data(), environment) !=
        0) {
        return -1;
    }
    return pid;
}

// Collects a child that has ended or is about to.
ProgramEnd Collect(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return ProgramEnd::Success;  // the host has collected it
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ProgramEnd::Success : ProgramEnd::Failure;
}

}  // namespace

ProgramEnd RunProgram(const std::vector<std::string>& words, std::chrono::milliseconds time) {
    const pid_t pid = Start(words);
    if (pid < 0) return ProgramEnd::Failure;
    const Descriptor process = Hold(pid);
    if (!process || WaitFor(process, time)) return Collect(pid);
    Signal(process, SIGKILL);
    Collect(pid);
    return ProgramEnd::TimeOut;
}

bool EndProcess(pid_t pid, const std::string& command, std::chrono::milliseconds time) {
    const Descriptor process = Hold(pid);
    // Compared once the descriptor holds the process: from here on the number cannot come to mean another one.
    if (!process || CommandOf(pid) != command) return true;
    if (!Signal(process, SIGTERM)) return errno == ESRCH;
    if (WaitFor(process, time)) return true;
    Signal(process, SIGKILL);
    return WaitFor(process, kForcedEndTime);
}

// The line is "12 (name) S ...", and a name may hold anything. A process that has ended but was not collected yet is
// still listed, as Z.
std::string CommandOf(pid_t pid) {
    const std::string line = ReadFileIfPossible("/proc/" + std::to_string(pid) + "/stat").value_or("");
    const auto open = line.find('(');
    const auto close = line.rfind(") ");
    if (open == std::string::npos || close == std::string::npos || line.compare(close, 3, ") Z") == 0) return "";
    return line.substr(open + 1, close - open - 1);
}

}  // namespace nimbrel::ad::logins
