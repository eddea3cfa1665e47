// The trial that a candidate has to pass before it is put in place, on copies of the PAM files:
//
//   1. The provider's PAM module and name-service library can be loaded.
//   2. libpam itself opens every service concerned (`pam_start_confdir`), with include lines led into the copy.
//   3. libpam itself walks the stacks, with every module replaced by one that gives a set answer, so that nobody has to
//      type a password and nothing is logged or counted:
//        - root and any other local user with the right password get in, change their password and get a session, also
//          when the directory is down or its module cannot be loaded,
//        - with a wrong password they get neither in nor a new password,
//        - so does a directory user.
//      A wrong password is tried three times: all other modules abstain, those agree whose yes the stack keeps while it
//      goes on, and all agree. So a denial that is gone or passed over shows, also where a list of users, a program
//      that is run or the like still says yes.
//
// A directory user with the right password gets in, too, where the change is to let him in. A rule of the administrator's
// that lets in local users only ("required pam_localuser.so") may keep him out of services that were not named, but not of
// all: then the logins would be on, and nobody could use them.
//
// What a service refused or let through before the change is not held against the candidate. A service that was named is
// to be opened by libpam, and if it asks for passwords at all (pam_unix.so) to let root and local users in, whatever it did
// before.

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

// The steps of whoever uses a service.
inline constexpr char kLogIn[] = "log in";
inline constexpr char kChangePassword[] = "change the password";
inline constexpr char kOpenSession[] = "open a session";

// Prints a line for each service or library that fails, "<what>\t<reason>", and returns 0 whatever they say. What fails
// to be entered is a step: "sshd\tlog in".
int OpenServices(const std::string& folder, const std::vector<std::string>& services);
int EnterServices(const std::string& folder, const std::vector<std::string>& services);
int LoadLibraries(const std::vector<std::string>& paths);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_TRIAL_H_
