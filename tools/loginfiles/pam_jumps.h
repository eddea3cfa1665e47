// What the jumps of a stack lead to. The control "[success=2 default=ignore]" passes over the next two rules, counted in
// the service's whole stack: rules of included files one by one, a substack as one. So a rule that comes or goes, in
// whichever file, may give a jump another end, and with it let everybody in or nobody:
//
//     auth  [default=1 success=ok]  pam_usertype.so isregular     # others than people pass over the directory
//     auth  sufficient              pam_sss.so                    # if this one goes alone, they pass over the next
//     auth  required                pam_deny.so
//
// Threads: plain functions.

#ifndef NIMBREL_LOGINS_PAM_JUMPS_H_
#define NIMBREL_LOGINS_PAM_JUMPS_H_

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tools/loginfiles/pam_text.h"

namespace nimbrel::logins {

inline constexpr char kGuard[] = "pam_localuser.so";
inline constexpr char kGuardControl[] = "[success=1 default=ignore]";
inline constexpr char kAccountControl[] = "[success=ok new_authtok_reqd=ok user_unknown=ignore default=bad]";

// The numbers of the lines that are the module's rules, and of the guards right in front of them.
std::set<int> OwnLines(const std::vector<PamLine>& lines, const std::string& module);

// The named file with the same lines, in which every jump of its own counts without the lines of these numbers. A jump
// over nothing else becomes "ignore", which is what it does then. Throws `LoginsError` (kind Refused) for a jump that ends
// at a line that goes and had a say there: what it was to lead to is not there any more.
std::string WithJumpsWithout(const PamFiles& files, const std::string& name, const std::set<int>& lines);

// Whether the host's own tool makes the file with this name.
using IsMade = std::function<bool(const std::string&)>;

// Throws `LoginsError` (kind Refused) unless every jump of every service ends at the same rule before and after the
// module's own lines came or went. Those of the module that stand in both are rules like any other. Of rules that stay,
// nothing may differ but the numbers of their jumps, where "ignore" is a jump over nothing. Files that are made may
// differ in anything: their own jumps are the tool's affair, but those of services into them or over them are not.
void ProveJumpsKept(const PamFiles& before, const PamFiles& after, const std::string& module,
                    const IsMade& isMade = nullptr);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_PAM_JUMPS_H_
