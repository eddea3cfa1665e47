// SSSD as a service of this host: through systemd where that runs, else as the process that its pid file names.
//
// Every step is bounded. What SSSD does not do in time, or refuses, goes to the system log and is no failure here: the
// files are what counts, and the next start of SSSD reads them.

#ifndef NIMBREL_AD_LOGINS_SSSD_SERVICE_H_
#define NIMBREL_AD_LOGINS_SSSD_SERVICE_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrel::ad::logins {

class SssdService {
 public:
    explicit SssdService(std::string root) : _root(std::move(root)) {}

    bool IsInstalled() const;
    bool IsRunning() const;

    void Stop() const;
    void Start() const;
    // Stops and starts it, or starts it if it did not run.
    void Restart() const;

    // The value of `services` in our file, so that SSSD answers name-service and PAM requests: empty where systemd starts
    // the two on demand (naming them keeps its sockets from working), else with the administrator's own, which ours would
    // otherwise take the place of.
    std::vector<std::string> ServicesToName() const;

 private:
    bool HasSystemd() const;
    bool HasSockets() const;
    void Systemctl(const std::vector<std::string>& words, const char* task) const;
    std::optional<pid_t> RunningPid() const;

    std::string _root;
};

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_SSSD_SERVICE_H_
