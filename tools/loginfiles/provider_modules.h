// What the active directory provider puts into the login files.

#ifndef NIMBREL_LOGINS_PROVIDER_MODULES_H_
#define NIMBREL_LOGINS_PROVIDER_MODULES_H_

#include <string>
#include <vector>

namespace nimbrel::logins {

struct ProviderModules {
    std::string pamModule;                     // "pam_sss.so"
    std::vector<std::string> pamParameters{};  // behind the module in every rule
    std::string nssService;                    // "sss"
    std::vector<std::string> nssParameters{};  // criteria behind the service: "NOTFOUND=return"
};

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_PROVIDER_MODULES_H_
