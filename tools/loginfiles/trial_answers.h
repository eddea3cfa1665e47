// What the modules of a stack answer while it is tried, for one person after the other.

#ifndef NIMBREL_LOGINS_TRIAL_ANSWERS_H_
#define NIMBREL_LOGINS_TRIAL_ANSWERS_H_

#include <functional>
#include <string>

#include "tools/loginfiles/pam_text.h"
#include "tools/loginfiles/provider_modules.h"

namespace nimbrel::logins {

// What one module answers, as the arguments of pam_debug.so; empty to leave the rule as it is.
using Answers = std::function<std::string(const PamLine&)>;

// What the modules answer that have nothing to do with passwords.
enum class Others {
    Ignore,    // they abstain
    Agree,     // they agree where their rule keeps that and goes on: "required", "optional", "[success=ok]"
    AgreeAll,  // they agree wherever that leads: to the end of the stack, or over some rules
};

// With the right password or a wrong one. For local accounts the directory's module answers `directory`.
Answers Root(const ProviderModules& provider, bool right, const std::string& directory, Others others);
Answers LocalUser(const ProviderModules& provider, bool right, const std::string& directory, Others others);
Answers DirectoryUser(const ProviderModules& provider, bool right, Others others);
// One with the right password, whom rules for local users only let in all the same.
Answers DirectoryUserAsLocal(const ProviderModules& provider);

// Whether the rule refuses whoever has no account in /etc/passwd.
bool IsForLocalUsersOnly(const PamLine& line);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_TRIAL_ANSWERS_H_
