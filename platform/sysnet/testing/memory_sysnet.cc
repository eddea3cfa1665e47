#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "names.h"
#include "sysnet/memory.h"

namespace SysNet {
namespace {

using HostMgmt::Lib::HostMgmtException;
using Memory::Operation;

struct Behaviour {
    std::deque<std::string> nextFailures;
    std::optional<std::string> everyFailure;
    int calls = 0;
};

struct ManagementInterface {
    std::string name;
    std::string address;
};

using Entries = std::map<std::string, std::vector<std::string>>;

// Everything that this twin remembers. `mutex` guards it all.
struct State {
    std::mutex mutex;
    std::map<std::string, Entries> hostsFiles;
    std::vector<std::string> searchDomains;
    std::optional<ManagementInterface> managementInterface = ManagementInterface{"eth0", "192.0.2.10"};
    std::array<Behaviour, 7> behaviours;

    Behaviour& Of(Operation operation) { return behaviours[static_cast<std::size_t>(operation)]; }

    void CountAndMaybeFail(Operation operation) {
        Behaviour& behaviour = Of(operation);
        ++behaviour.calls;
        if (!behaviour.nextFailures.empty()) {
            const std::string message = std::move(behaviour.nextFailures.front());
            behaviour.nextFailures.pop_front();
            throw HostMgmtException(message.c_str());
        }
        if (behaviour.everyFailure) throw HostMgmtException(behaviour.everyFailure->c_str());
    }
};

// The state, locked for as long as this lives.
class Locked {
 public:
    Locked() : _hold(TheState().mutex) {}
    State* operator->() const { return &TheState(); }

 private:
    static State& TheState() {
        static State state;
        return state;
    }
    const std::lock_guard<std::mutex> _hold;
};

}  // namespace

namespace Network {

HostsFile::HostsFile() : HostsFile("/etc/hosts") {}

HostsFile::HostsFile(std::string path) : _path(std::move(path)) {
    Locked()->CountAndMaybeFail(Operation::kMakeHostsFile);
}

void HostsFile::AddOrReplaceEntry(const std::string& address, const std::string& hostName,
                                  const std::vector<std::string>& aliases) {
    CheckAddress(address);
    std::vector<std::string> names = {hostName};
    names.insert(names.end(), aliases.begin(), aliases.end());
    for (const std::string& name : names) CheckHostName(name);

    const Locked state;
    state->CountAndMaybeFail(Operation::kAddOrReplaceEntry);
    Entries& entries = state->hostsFiles[_path];
    const auto old = std::find_if(entries.begin(), entries.end(),
                                  [&](const auto& entry) { return SameAddress(entry.first, address); });
    if (old != entries.end()) entries.erase(old);
    entries[address] = std::move(names);
}

DnsConfigImpl::DnsConfigImpl(const std::string& netStackName) {
    CheckNetStackName(netStackName);
    Locked()->CountAndMaybeFail(Operation::kMakeDnsConfig);
}

void DnsConfigImpl::AddUserSearchDomain(const std::string& domain) {
    CheckSearchDomain(domain);
    Locked()->CountAndMaybeFail(Operation::kAddUserSearchDomain);
    _added.push_back(domain);
}

void DnsConfigImpl::SaveConfig() {
    const Locked state;
    state->CountAndMaybeFail(Operation::kSaveConfig);
    std::vector<std::string>& saved = state->searchDomains;
    for (const std::string& domain : _added) {
        const auto same = [&](const std::string& other) { return SameDomain(other, domain); };
        if (std::none_of(saved.begin(), saved.end(), same)) saved.push_back(domain);
    }
    _added.clear();
}

NetworkInterface::NetworkInterface(std::string name, HostMgmt::Network::IpConfig ipConfig)
    : _name(std::move(name)), _ipConfig(std::move(ipConfig)) {}

NetworkInfoImpl::NetworkInfoImpl() { Locked()->CountAndMaybeFail(Operation::kMakeNetworkInfo); }

std::shared_ptr<NetworkInterface> NetworkInfoImpl::GetManagementInterface() const {
    const Locked state;
    state->CountAndMaybeFail(Operation::kGetManagementInterface);
    const auto& interface = state->managementInterface;
    if (!interface) throw HostMgmtException("No network interface is up and has an IPv4 address");
    const HostMgmt::Network::Ipv4Address address(interface->address);
    return std::make_shared<NetworkInterface>(interface->name, HostMgmt::Network::IpConfig(address));
}

}  // namespace Network

namespace Memory {

void Reset() {
    const Locked state;
    state->hostsFiles.clear();
    state->searchDomains.clear();
    state->managementInterface = ManagementInterface{"eth0", "192.0.2.10"};
    state->behaviours = {};
}

Entries HostsEntries(const std::string& path) { return Locked()->hostsFiles[path]; }

std::vector<std::string> SearchDomains() { return Locked()->searchDomains; }

void SetManagementInterface(const std::string& name, const std::string& address) {
    Locked()->managementInterface = ManagementInterface{name, address};
}

void ClearManagementInterface() { Locked()->managementInterface.reset(); }

void FailNext(Operation operation, const std::string& message) {
    Locked()->Of(operation).nextFailures.push_back(message);
}

void FailAlways(Operation operation, const std::string& message) { Locked()->Of(operation).everyFailure = message; }

int CallCount(Operation operation) { return Locked()->Of(operation).calls; }

}  // namespace Memory
}  // namespace SysNet
