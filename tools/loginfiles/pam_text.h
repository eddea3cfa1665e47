// PAM service files as libpam reads them, with the place of every line kept.
//
//     1  # who may log in
//     2  auth     [success=1 default=ignore]  pam_unix.so nullok \  (and the line ends here)
//     3           try_first_pass
//     4  -session optional  pam_systemd.so     # may be missing
//     5  account  include   system-auth
//     6  @include common-session
//
// Lines 2 and 3 are one rule, also with comments or blank lines between them; 4 is one whose module may be missing; 5
// takes in the account rules of another file, 6 all of its rules. Everything from a '#' on is a comment. Words may stand
// in brackets, which are no part of them. A line that is none of these is unreadable: libpam refuses logins through it.

#ifndef NIMBREL_LOGINS_PAM_TEXT_H_
#define NIMBREL_LOGINS_PAM_TEXT_H_

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel::logins {

inline constexpr char kPamFolder[] = "/etc/pam.d";
// Where libpam looks for what the first folder does not have, in this order; the last one is SUSE's.
inline constexpr std::array<const char*, 2> kVendorFolders = {"/usr/lib/pam.d", "/usr/etc/pam.d"};

struct PamLine {
    enum class Kind { Nothing, Rule, Include, Unreadable };

    Kind kind = Kind::Nothing;  // `Include` is line 6; line 5 is a rule with the control "include"
    std::string raw;            // as in the file, with its line ends; all together are the file
    int number = 0;             // of its first line, from 1
    std::string type = {};      // in lower case: "auth"
    bool optional = false;      // written with a '-'
    std::string control = {};   // "required", "[success=1 default=ignore]"
    std::string module = {};    // or the file that is included
    std::vector<std::string> arguments = {};

    bool IncludesAnother() const { return kind == Kind::Include || control == "include" || control == "substack"; }
};

std::vector<PamLine> ParsePam(const std::string& text);

// "pam_unix.so" of "/lib/security/pam_unix.so".
std::string ModuleName(const PamLine& line);

// The numbers that a control jumps by, the largest; 0 if it jumps nowhere.
int LongestJump(const std::string& control);

// All service files by name, and the files elsewhere that they include, by path: "/opt/agent/pam-rules".
using PamFiles = std::map<std::string, std::string>;

// Those of /etc/pam.d below `root`, and of the vendor's folders where it has none of that name. Backup copies are left
// out, unless a rule includes them.
PamFiles ReadPamFiles(const std::string& root = "");

// The name among `PamFiles` of a file that a rule includes: "common-auth" also for "/etc/pam.d/common-auth".
std::string IncludedName(const std::string& module);
// The file of a service.
inline std::string PathOf(const std::string& name) { return std::string(kPamFolder) + '/' + name; }
// What editors and package managers leave beside a file: nobody logs in through it, and it has to stay what it is.
bool IsBackup(const std::string& name);
// Leads to a device or the like ("/etc/pam.d/x -> /dev/null"): no rules for libpam, which does not look for a vendor's file
// then. The service has those of "other".
bool IsMasked(const std::string& path);
// Not a file elsewhere.
inline bool IsService(const std::string& name) { return name.find('/') == std::string::npos; }

struct EffectiveRule {
    PamLine line;
    std::string file;  // the service file that it stands in
    int level = 0;     // the number of substacks that it stands in
};

// A service's rules of one type, or of all for an empty `type`, with the files it includes put in place; "other" if
// there is no such service. What cannot be followed (a missing file, a circle, more than a thousand files in all)
// stays as the rule that names it.
std::vector<EffectiveRule> EffectiveStack(const PamFiles& files, const std::string& service,
                                          std::string_view type = {});

// The same with the rule that opens a substack in front of the rules of it, as libpam counts them when it jumps.
std::vector<EffectiveRule> RuleChain(const PamFiles& files, const std::string& service, std::string_view type);

// Whether a rule of the service, or of a file it includes, names the module.
bool Uses(const PamFiles& files, const std::string& service, std::string_view type, const std::string& module);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_PAM_TEXT_H_
