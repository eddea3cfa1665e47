// The values that cross the boundary to a directory provider.
//
// All are plain values without a lock; copy them freely between threads.

#ifndef NIMBREL_AUTHENTICATION_DIRECTORY_TYPES_H_
#define NIMBREL_AUTHENTICATION_DIRECTORY_TYPES_H_

#include <cstdint>
#include <iosfwd>
#include <string>

#include "authentication/export.h"
#include "authentication/provider_abi.h"  // Credentials

// How well the host is trusted by its domain, as the provider reports it; the provider's documentation names its
// values. Three have a meaning of the library's own: 7 nothing is known yet or the host is no member, 2 the provider did
// not answer in time, 0 the provider cannot tell.
enum TrustState : std::int32_t {};

// How the host's domain trusts another domain, as the provider reports it. 6 stands for a domain of which nothing is
// known, 0 for a provider that cannot tell.
enum TrustRelationship : std::int32_t {};

namespace nimbrel::authentication {

class NIMAUTH_EXPORT Domain {
 public:
    // Either name may be empty, which means that it is not known.
    Domain(const std::string& dnsName, const std::string& netbiosName);

    const std::string& DNSName() const { return _dnsName; }
    const std::string& NetBIOSName() const { return _netbiosName; }

 private:
    std::string _dnsName;
    std::string _netbiosName;
};

// Writes "DNS Name: corp.test, NetBIOS Name: CORP" without a line end; "(unset)" stands for an empty name.
NIMAUTH_EXPORT std::ostream& operator<<(std::ostream& stream, const Domain& domain);

namespace APX {

// The domain of a join with a machine account.
struct DirectoryDomainInfo {
    std::string reserved;  // always empty
    std::string netbiosName;
    std::string dnsName;
    std::string sid;  // for example "S-1-5-21-1004336348-1177238915-682003330"
};

// The machine account of such a join.
struct MachineAccountInfo {
    std::string hostName;  // the short name
    std::string dnsDomainName;
    std::string reserved;         // always empty
    std::string principalField2;  // opaque, from the proxy
    std::string principalField3;  // opaque, from the proxy
};

}  // namespace APX

// What the authentication proxy answers when it has created a machine account.
struct ComputerPrincipalInfo {
    std::string reserved;         // always empty
    std::string principalField2;  // opaque to the library; the provider knows what it is
    std::string principalField3;  // opaque to the library; the provider knows what it is
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_DIRECTORY_TYPES_H_
