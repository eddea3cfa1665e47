#ifndef NIMBREL_PLUGINKIT_MACHINE_ACCOUNT_JOIN_H_
#define NIMBREL_PLUGINKIT_MACHINE_ACCOUNT_JOIN_H_

#include <string>
#include <string_view>

namespace nimbrel::kit {

// A domain and a machine account as an authentication proxy names them. Empty `hostName`, `netbiosName` and `sid` are
// not looked at.
struct MachineAccountJoin {
    std::string hostName;  // this host's
    std::string dnsName;
    std::string netbiosName;
    std::string sid;
    std::string accountName;         // with or without "$"
    std::string_view oneTimeSecret;  // the caller keeps and wipes it; a NUL follows
};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_MACHINE_ACCOUNT_JOIN_H_
