// The real network library at the host's real files.

#include <filesystem>
#include <sstream>

#include "host.h"
#include "sysnet_contract.h"

namespace {

const auto* const kPrivateRoot = host::RequirePrivateRoot();

struct RealNetwork {
    static constexpr char kInterface[] = "eth0";
    static constexpr char kAddress[] = "192.0.2.10";

    // The files are the host's, wherever the process stands.
    static void Reset() {
        std::filesystem::current_path("/tmp");
        WriteFile("/etc/hosts", "127.0.0.1\tlocalhost\n");
        WriteFile("/etc/resolv.conf", "nameserver 127.0.0.1\n");
    }

    static std::map<std::string, Names> HostsEntries() {
        std::map<std::string, Names> entries;
        std::istringstream file(ReadFile("/etc/hosts"));
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string address;
            words >> address;
            for (std::string name; words >> name;) entries[address].push_back(name);
        }
        return entries;
    }

    static Names SearchDomains() {
        Names domains;
        std::istringstream file(ReadFile("/etc/resolv.conf"));
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string keyword;
            words >> keyword;
            if (keyword != "search") continue;
            domains.clear();
            for (std::string domain; words >> domain;) domains.push_back(domain);
        }
        return domains;
    }
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Real, NetworkContract, RealNetwork);
