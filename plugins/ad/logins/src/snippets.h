// The text of the three files that SSSD reads. SSSD merges the files of its folder option by option, in the order of
// their names, and the last one wins: an administrator's 70-local.conf has the last word, and his sssd.conf the first.

#ifndef NIMBREL_AD_LOGINS_SNIPPETS_H_
#define NIMBREL_AD_LOGINS_SNIPPETS_H_

#include <string>
#include <vector>

#include "adlogins/log_ins.h"

namespace nimbrel::ad::logins {

// `services`: what SSSD has to be told to run; empty where it need not be told.
std::string DomainSnippet(const DomainLogIns& domain, const LogInOptions& options,
                          const std::vector<std::string>& services);
std::string ControllersSnippet(const DomainLogIns& domain, const std::vector<std::string>& controllers);
std::string SmartCardSnippet(const std::vector<std::string>& services);

}  // namespace nimbrel::ad::logins

#endif  // NIMBREL_AD_LOGINS_SNIPPETS_H_
