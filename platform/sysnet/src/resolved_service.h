// systemd-resolved as a service of this host.

#ifndef SYSNET_SRC_RESOLVED_SERVICE_H_
#define SYSNET_SRC_RESOLVED_SERVICE_H_

#include <string>

namespace SysNet::Network {

// Whether the file at `resolvConf` is a symbolic link to one that resolved writes (below /run/systemd/resolve, which need
// not exist yet) or ships.
bool ResolvedManages(const std::string& resolvConf);

inline constexpr int kReloadMilliseconds = 20'000;

// Makes a running resolved read its configuration again, and waits for it, `milliseconds` at most; on a kernel before 5.3,
// which cannot wait for a process with a limit, as long as it takes. Does nothing where systemd does not run. A failure
// goes to the system log as a warning: the configuration holds from resolved's next start.
void ReloadResolved(int milliseconds = kReloadMilliseconds);

}  // namespace SysNet::Network

#endif  // SYSNET_SRC_RESOLVED_SERVICE_H_
