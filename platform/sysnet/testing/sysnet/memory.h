// Control of the in-memory network library that unit tests link instead of the real one.
//
// Hosts entries and search domains go into tables of the process, and the management interface is what a test says:
//
//     SysNet::Memory::Reset();
//     SysNet::Memory::SetManagementInterface("eth0", "192.0.2.10");
//     const auto address = SysNet::Network::NetworkInfoImpl().GetManagementInterface()->GetIpConfig().GetIpv4Address();
//     SysNet::Network::HostsFile().AddOrReplaceEntry(address.GetStringAddress(), "node01.corp.test", {"node01"});
//     EXPECT_EQ(SysNet::Memory::HostsEntries().at("192.0.2.10").front(), "node01.corp.test");
//
// Threads: everything here may be called by any thread at any time.

#ifndef SYSNET_TESTING_MEMORY_H_
#define SYSNET_TESTING_MEMORY_H_

#include <map>
#include <string>
#include <vector>

#include "sysnet/dns_config.h"
#include "sysnet/hosts_file.h"
#include "sysnet/network_info.h"

namespace SysNet::Memory {

enum class Operation {
    kMakeHostsFile,
    kAddOrReplaceEntry,
    kMakeNetworkInfo,
    kGetManagementInterface,
    kMakeDnsConfig,
    kAddUserSearchDomain,
    kSaveConfig
};

// Forgets all entries, domains, failures and counts, and makes "eth0" with 192.0.2.10 the management interface.
void Reset();

// The names of each address of a hosts file, the official one first.
std::map<std::string, std::vector<std::string>> HostsEntries(const std::string& path = "/etc/hosts");

// The saved search domains, in the order in which they were added.
std::vector<std::string> SearchDomains();

void SetManagementInterface(const std::string& name, const std::string& address);

// From now on there is no management interface.
void ClearManagementInterface();

// The next call of the operation throws HostMgmtException with `message` and changes nothing. Several calls queue up.
void FailNext(Operation operation, const std::string& message);

// Every call of the operation throws HostMgmtException with `message`, until `Reset`. Queued failures come first.
void FailAlways(Operation operation, const std::string& message);

// How often the operation was called since `Reset`, failed calls included.
int CallCount(Operation operation);

}  // namespace SysNet::Memory

#endif  // SYSNET_TESTING_MEMORY_H_
