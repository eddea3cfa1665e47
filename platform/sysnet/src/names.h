// Which addresses and names may be written into the host's network files. Anything else could end a line early, start a
// comment or add words of its own.

#ifndef SYSNET_SRC_NAMES_H_
#define SYSNET_SRC_NAMES_H_

#include <string>
#include <string_view>

namespace SysNet::Network {

// All throw HostMgmtException that quotes the text.
void CheckAddress(const std::string& address);
void CheckHostName(const std::string& name);
void CheckSearchDomain(const std::string& domain);
void CheckNetStackName(const std::string& name);

// Whether two texts are the same IPv4 or IPv6 address, however written. False unless both are addresses.
bool SameAddress(const std::string& a, const std::string& b);

// Whether two domain names are equal but for the case of their letters and a final dot.
bool SameDomain(std::string_view a, std::string_view b);

}  // namespace SysNet::Network

#endif  // SYSNET_SRC_NAMES_H_
