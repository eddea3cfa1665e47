// The trial that a candidate has to pass before it is put in place, on copies of the PAM files:
//
//   1. The provider's PAM module and name-service library can be loaded.
//   2. libpam itself opens every service concerned (`pam_start_confdir`), with include lines led into the copy.
//   3. libpam itself walks the stacks, with every module replaced by one that gives a set answer, so that nobody has to
//      type a password and nothing is logged or counted:
//        - root with the right password gets in, also when the directory is down or its module cannot be loaded,
//        - root with a wrong password does not,
//        - a directory user with the right password gets in, with a wrong one not.
//      A wrong password is tried twice: all other modules abstain, or agree where their answer is required. So a denial
//      that is gone or passed over shows, also where a list of users or the like still says yes.
//
// What a service refused or let through before the change is not held against the candidate, except for services that
// were named.

#ifndef NIMBREL_LOGINS_TRIAL_H_
#define NIMBREL_LOGINS_TRIAL_H_

#include <string>
#include <vector>

#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/pam_text.h"
#include "tools/loginfiles/provider_modules.h"

namespace nimbrel::logins {

struct Candidate {
    PamFiles before;
    PamFiles after;
    bool enable = true;
    std::vector<std::string> named;  // services that the administrator named
};

// Throws `LoginsError` (kind Refused) with the first reason. Call it under the journal's lock.
void Try(const Journal& journal, const ProviderModules& provider, const Candidate& candidate);

// --- For the helper (helper_pam.cc), which alone loads libpam and modules ---

// Prints a line for each service or library that fails, "<what>\t<reason>", and returns 0 whatever they say.
int OpenServices(const std::string& folder, const std::vector<std::string>& services);
int EnterServices(const std::string& folder, const std::vector<std::string>& services);
int LoadLibraries(const std::vector<std::string>& paths);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_TRIAL_H_
