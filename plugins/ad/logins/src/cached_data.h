// What SSSD has learned of a domain, and what its users' log-ins have left behind.

#ifndef NIMBREL_AD_LOGINS_CACHED_DATA_H_
#define NIMBREL_AD_LOGINS_CACHED_DATA_H_

#include <string>
#include <vector>

namespace nimbrel::ad::logins {

// Removes, below `root`, for each domain: SSSD's database and time stamps, its own tickets, the addresses of controllers
// it wrote down for Kerberos, its group policies; the name-service caches, which all domains share; and the credential
// caches of the domain's users in /tmp. To be called while SSSD is stopped. Home directories and log files stay.
//
// Removes all it can; throws `StatusError` for the first that it could not.
void RemoveCachedData(const std::string& root, const std::vector<std::string>& domains);

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_CACHED_DATA_H_
