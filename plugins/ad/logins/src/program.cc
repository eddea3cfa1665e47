#include "program.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "files.h"
#include "pluginkit/descriptor.h"
#include "pluginkit/spawn_settings.h"

namespace nimbrel::ad::logins {
namespace {

constexpr auto kForcedEndTime = std::chrono::seconds(1);

using Clock = std::chrono::steady_clock;

// A hold on a process, which no other process can slip into. glibc 2.36 declares its two functions for C only.
kit::Descriptor Hold(pid_t pid) { return kit::Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))); }

bool Signal(const kit::Descriptor& process, int signal) {
    return syscall(SYS_pidfd_send_signal, process.Number(), signal, nullptr, 0) == 0;
}

// True when the process has ended.
bool WaitFor(const kit::Descriptor& process, std::chrono::milliseconds time) {
    const auto end = Clock::now() + time;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd entry = {process.Number(), POLLIN, 0};
        const int ready = poll(&entry, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
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
    const pid_t pid = kit::SpawnSettings().Start(words, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8"});
    if (pid < 0) return ProgramEnd::Failure;
    const kit::Descriptor process = Hold(pid);
    if (!process || WaitFor(process, time)) return Collect(pid);
    Signal(process, SIGKILL);
    Collect(pid);
    return ProgramEnd::TimeOut;
}

bool EndProcess(pid_t pid, const std::string& command, std::chrono::milliseconds time) {
    const kit::Descriptor process = Hold(pid);
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
