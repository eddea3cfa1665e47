// The edits of a single text: the provider's service in nsswitch.conf, the provider's module in a PAM service file. Both
// go through libaugeas, and both prove on their result that no other line has changed.
//
// Errors: `LoginsError`, kind Refused, for a text that cannot be edited without loss.

#ifndef NIMBREL_LOGINS_EDITS_H_
#define NIMBREL_LOGINS_EDITS_H_

#include <string>

#include "tools/loginfiles/pam_text.h"
#include "tools/loginfiles/provider_modules.h"

namespace nimbrel::logins {

// The service becomes the last one of passwd, group and, where there is such a line, initgroups. A database that has it
// already stays as it is; a missing line of passwd or group is added as "passwd: files sss".
std::string WithNssService(const std::string& text, const ProviderModules& provider);
// Takes the service out of these databases, and the criteria that belong to it. Refused where it is the only source of
// one: nothing may be left of a line, and what shall be there instead is not ours to say.
std::string WithoutNssService(const std::string& text, const ProviderModules& provider);
bool HasNssService(const std::string& text, const std::string& service);

// The module in the named service file itself, as far as it is not there yet. For each type it stands in front of the
// first rule that leads to pam_unix.so, and in front of whatever jumps over that place. Local accounts pass it by:
//
//     auth      [success=1 default=ignore]  pam_localuser.so
//     auth      sufficient                  pam_sss.so
//     account   [success=1 default=ignore]  pam_localuser.so
//     account   [success=ok new_authtok_reqd=ok user_unknown=ignore default=bad]  pam_sss.so
//     password  [success=1 default=ignore]  pam_localuser.so
//     password  sufficient                  pam_sss.so
//     session   optional                    pam_sss.so
//
// so that whatever becomes of the directory, or of the module's file, an account of /etc/passwd logs in as before.
// Unchanged if no rule of the file leads to pam_unix.so.
std::string WithPamModule(const PamFiles& files, const std::string& name, const ProviderModules& provider);
// The same rules in a template of authselect, which has conditions in braces that no lens reads: as lines of their own,
// between lines that stay as they are.
std::string WithPamModuleInTemplate(const PamFiles& files, const std::string& name, const ProviderModules& provider);
std::string WithNssServiceInTemplate(const std::string& text, const ProviderModules& provider);
// Takes the module's rules out of the named file, and the guards in front of them. Jumps of the file that pass over them
// count without them from then on; see pam_jumps.h, also for what jumps out of other files.
std::string WithoutPamModule(const PamFiles& files, const std::string& name, const std::string& module);
bool HasPamModule(const std::string& text, const std::string& module);

// The profile from which pam-auth-update makes its rules; of the same kind.
std::string PamProfile(const ProviderModules& provider);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_EDITS_H_
