// The administrator's choice in /etc/nimbrel/network.conf; sysnet/network_info.h describes the format.

#ifndef SYSNET_SRC_NETWORK_CONF_H_
#define SYSNET_SRC_NETWORK_CONF_H_

#include <optional>
#include <string>
#include <string_view>

namespace SysNet::Network {

// The name of the management interface, or nothing if the text names none. `path` is for messages.
//
// Throws HostMgmtException that names the path and the line of what is wrong.
std::optional<std::string> ParseManagementInterface(const std::string& path, std::string_view text);

}  // namespace SysNet::Network

#endif  // SYSNET_SRC_NETWORK_CONF_H_
