// Search domains in the text of the two files that can hold them.

#ifndef SYSNET_SRC_SEARCH_DOMAINS_H_
#define SYSNET_SRC_SEARCH_DOMAINS_H_

#include <string>
#include <string_view>
#include <vector>

namespace SysNet::Network {

// Adds the domains to the "search" line of a resolv.conf that the resolver goes by; see sysnet/dns_config.h. Returns the
// text unchanged where it has them all.
std::string AddToResolvConf(std::string_view text, const std::vector<std::string>& domains);

// Adds the domains to the last "Domains=" of the section [Resolve] of a drop-in of systemd-resolved; makes what is
// missing. An empty "Domains=" takes back those before it and stays empty: the domains get a line of their own then. Lines
// that end with a backslash go on in the next one. Returns the text unchanged where it has them all.
std::string AddToResolvedDropIn(std::string_view text, const std::vector<std::string>& domains);

}  // namespace SysNet::Network

#endif  // SYSNET_SRC_SEARCH_DOMAINS_H_
