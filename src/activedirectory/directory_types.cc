#include "authentication/directory_types.h"

#include <ostream>

namespace nimbrel::authentication {
namespace {

const char* OrUnset(const std::string& name) { return name.empty() ? "(unset)" : name.c_str(); }

}  // namespace

Domain::Domain(const std::string& dnsName, const std::string& netbiosName)
    : _dnsName(dnsName), _netbiosName(netbiosName) {}

std::ostream& operator<<(std::ostream& stream, const Domain& domain) {
    return stream << "DNS Name: " << OrUnset(domain.DNSName()) << ", NetBIOS Name: " << OrUnset(domain.NetBIOSName());
}

}  // namespace nimbrel::authentication
