#include "resolved_service.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "unique_fd.h"

namespace SysNet::Network {
namespace {

using std::chrono::steady_clock;

// Everything that posix_spawn is told: no terminal, no signals held back, and none of this process's environment.
class SpawnSettings {
 public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&_actions);
        posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&_actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawnattr_init(&_attributes);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&_attributes, &none);
        posix_spawnattr_setsigdefault(&_attributes, &all);
        posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        posix_spawnattr_destroy(&_attributes);
        posix_spawn_file_actions_destroy(&_actions);
    }

    const posix_spawn_file_actions_t* Actions() const { return &_actions; }
    const posix_spawnattr_t* Attributes() const { return &_attributes; }

 private:
    posix_spawn_file_actions_t _actions;
    posix_spawnattr_t _attributes;
};

// Returns 0 or an errno.
int StartSystemctl(pid_t& pid) {
    char name[] = "systemctl";
    char noPassword[] = "--no-ask-password";
    char verb[] = "try-reload-or-restart";
    char unit[] = "systemd-resolved.service";
    char* arguments[] = {name, noPassword, verb, unit, nullptr};
    char searchPath[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    char* environment[] = {searchPath, nullptr};
    const SpawnSettings settings;
    return posix_spawn(&pid, "/usr/bin/systemctl", settings.Actions(), settings.Attributes(), arguments, environment);
}

bool EndsInTime(pid_t pid, int milliseconds) {
    const UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    // A kernel without process descriptors: the wait that follows has no limit.
    if (process.Get() < 0) return true;
    const auto end = steady_clock::now() + std::chrono::milliseconds(milliseconds);
    pollfd ended = {process.Get(), POLLIN, 0};
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now()).count();
        ready = poll(&ended, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    } while (ready < 0 && errno == EINTR);
    return ready != 0;
}

// Whether the process succeeded. Where this process lets the system reap its children, nothing is known, and all is taken
// to be well.
bool Succeeded(pid_t pid) {
    int status = 0;
    pid_t waited = 0;
    do {
        waited = waitpid(pid, &status, 0);
    } while (waited < 0 && errno == EINTR);
    return waited < 0 || (WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

bool RunSystemctl(int milliseconds) {
    pid_t pid = -1;
    if (StartSystemctl(pid) != 0) return false;
    if (EndsInTime(pid, milliseconds)) return Succeeded(pid);
    kill(pid, SIGKILL);
    Succeeded(pid);
    return false;
}

}  // namespace

bool ResolvedManages(const std::string& resolvConf) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path link = fs::read_symlink(resolvConf, error);
    if (error) return false;
    const fs::path target = fs::weakly_canonical(fs::path(resolvConf).parent_path() / link, error);
    if (error) return false;
    return target.parent_path() == "/run/systemd/resolve" || target == "/usr/lib/systemd/resolv.conf" ||
           target == "/lib/systemd/resolv.conf";
}

void ReloadResolved(int milliseconds) {
    struct stat status = {};
    // The mark by which services tell that systemd is the host's service manager.
    if (lstat("/run/systemd/system", &status) != 0) return;
    if (RunSystemctl(milliseconds)) return;
    syslog(LOG_WARNING,
           "systemd-resolved could not be told about its new search domains; they hold from its next start");
}

}  // namespace SysNet::Network
