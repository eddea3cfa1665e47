#include "sssd_service.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>

#include "files.h"
#include "program.h"
#include "sssd_settings.h"

namespace nimbrel::ad::logins {
namespace {

constexpr char kDaemon[] = "/usr/sbin/sssd";
constexpr char kPidFile[] = "/run/sssd.pid";
constexpr char kCommand[] = "sssd";
constexpr char kUnit[] = "sssd.service";
constexpr auto kStopTime = std::chrono::seconds(4);
constexpr auto kStartTime = std::chrono::seconds(5);
constexpr auto kQueryTime = std::chrono::seconds(2);

bool Exists(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

// A unit's link into systemd's folder may point outside of a tree that is prepared elsewhere.
bool IsLinked(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

void Warn(const char* task) {
    syslog(LOG_WARNING, "SSSD did not %s; log-ins of domain users follow its state of before", task);
}

bool Contains(const std::vector<std::string>& texts, const char* text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

}  // namespace

bool SssdService::IsInstalled() const { return access((_root + kDaemon).c_str(), X_OK) == 0; }

bool SssdService::HasSystemd() const { return Exists(_root + "/run/systemd/system"); }

bool SssdService::HasSockets() const {
    const std::string wanted = _root + "/etc/systemd/system/sssd.service.wants/";
    if (IsLinked(wanted + "sssd-nss.socket") && IsLinked(wanted + "sssd-pam.socket")) return true;
    // Debian's packages switch them on when they are installed.
    return !IsInstalled() && Exists(_root + "/etc/debian_version");
}

std::optional<pid_t> SssdService::RunningPid() const {
    const std::string text = ReadFileIfPossible(_root + kPidFile).value_or("");
    pid_t pid = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), pid);
    if (result.ec != std::errc() || pid <= 1 || CommandOf(pid) != kCommand) return std::nullopt;
    return pid;
}

bool SssdService::IsRunning() const {
    if (!HasSystemd()) return RunningPid().has_value();
    return RunProgram({_root + "/usr/bin/systemctl", "--quiet", "is-active", kUnit}, kQueryTime) == ProgramEnd::Success;
}

void SssdService::Systemctl(const std::vector<std::string>& words, const char* task) const {
    std::vector<std::string> all = {_root + "/usr/bin/systemctl", "--quiet", "--no-ask-password"};
    all.insert(all.end(), words.begin(), words.end());
    // systemd goes on with what it was asked for when its client is gone.
    if (RunProgram(all, kStartTime) != ProgramEnd::Success) Warn(task);
}

void SssdService::Stop() const {
    if (!IsInstalled()) return;
    if (HasSystemd()) return Systemctl({"stop", kUnit}, "stop");
    const auto pid = RunningPid();
    if (pid && !EndProcess(*pid, kCommand, kStopTime)) Warn("stop");
}

void SssdService::Start() const {
    if (!IsInstalled()) return;
    if (HasSystemd()) {
        // Joins and settings in quick succession must not run into the limit on starts.
        RunProgram({_root + "/usr/bin/systemctl", "--quiet", "reset-failed", kUnit}, kQueryTime);
        return Systemctl({"restart", kUnit}, "start");
    }
    if (RunProgram({_root + kDaemon, "-D"}, kStartTime) != ProgramEnd::Success) Warn("start");
}

void SssdService::Restart() const {
    if (!HasSystemd()) Stop();
    Start();
}

std::vector<std::string> SssdService::ServicesToName() const {
    if (HasSystemd() && HasSockets()) return {};
    std::vector<std::string> services = ReadForeignSssdSettings(_root).services.value_or(std::vector<std::string>());
    for (const char* const own : {"nss", "pam"}) {
        if (!Contains(services, own)) services.emplace_back(own);
    }
    return services;
}

}  // namespace nimbrel::ad::logins
