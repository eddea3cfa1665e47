// What has to change so that directory logins are on or off, computed on copies: nothing of the host is touched.
//
// The host's own mechanism decides how:
//
//   pam-auth-update  (Debian, Ubuntu) a generated profile, /usr/share/pam-configs/nimauth, and the files that
//                    `pam-auth-update --root` makes from it in a copy
//   authselect       where /etc/authselect/authselect.conf says that it manages the host
//   plain            everywhere else, and wherever single services are named: the service files themselves
//
// nsswitch.conf is edited by itself, except under authselect.
//
// Errors: `LoginsError`. Threads: call it under the journal's lock.

#ifndef NIMBREL_LOGINS_PLAN_H_
#define NIMBREL_LOGINS_PLAN_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/pam_text.h"
#include "tools/loginfiles/provider_modules.h"

namespace nimbrel::logins {

inline constexpr char kNsswitch[] = "/etc/nsswitch.conf";

enum class Mechanism { PamAuthUpdate, Authselect, Plain };
const char* Name(Mechanism mechanism);
Mechanism HostMechanism();

// A set of changes that grows file by file; links are followed, and files that end up as they were are left out.
class ChangeSet {
 public:
    // The present content, with what was set here; unset for a file that is not there.
    std::optional<std::string> Content(const std::string& path);
    void SetContent(const std::string& path, const std::string& content);
    void Remove(const std::string& path);
    // The path itself, also where it is a link.
    const FileState& ExactState(const std::string& path) { return AtExactly(path).after; }
    void SetExactly(const std::string& path, const FileState& state) { AtExactly(path).after = state; }
    std::vector<Change> Take();

 private:
    Change& At(const std::string& path);
    Change& AtExactly(const std::string& path);

    std::vector<Change> _changes;
};

struct Plan {
    std::string mechanism;
    std::vector<Change> changes;
    std::vector<std::string> notes = {};
};

// `services` empty: the whole host. Throws (kind Refused) for a service that has no file, for what the host's mechanism
// cannot do, and for a jump of a service that would end elsewhere (pam_jumps.h).
Plan PlanEnable(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services);
// If nothing has touched the files since, exactly what they were before they were enabled, byte for byte.
Plan PlanDisable(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services);

// Runs one edit of a file; a refusal names the file.
template <typename Edit>
std::string EditOf(const std::string& path, Edit edit);

// The service files as they would be: with those that come, without those that go, and what links would lead to then.
PamFiles FilesAfter(const std::vector<Change>& changes);
// The path at which the file with this name would then be read, links followed to the end; empty if nowhere.
std::string PlaceAfter(const std::string& name, const std::vector<Change>& changes);

// --- The mechanisms (plan_debian.cc, plan_authselect.cc, plan_plain.cc) ---

void EnablePamAuthUpdate(const Journal& journal, const ProviderModules& provider, ChangeSet& changes);
void DisablePamAuthUpdate(const Journal& journal, const ProviderModules& provider, ChangeSet& changes);
// Whether pam-auth-update makes the file with this name.
bool IsMadeByPamAuthUpdate(const std::string& name);
// Whether authselect makes it: its text lies in /etc/authselect now, or with these changes.
bool IsMadeByAuthselect(const std::string& name, const std::vector<Change>& changes);
void EnableAuthselect(const Journal& journal, const ProviderModules& provider, ChangeSet& changes);
void DisableAuthselect(const Journal& journal, const ProviderModules& provider, ChangeSet& changes);
// The helper's part of both, in a process of its own: lets authselect work on a copy of /etc that only this process sees,
// and leaves the outcome below `folder`/out. `words`: "enable" and the provider's modules, or "select" and a profile with
// its features. Throws `LoginsError`, whose remedy the process prints behind this mark.
inline constexpr char kRemedyMark[] = "remedy: ";
void MakeAuthselectCandidate(const std::string& folder, const std::vector<std::string>& words);
void AddPlain(const ProviderModules& provider, const std::vector<std::string>& services, ChangeSet& changes);
void RemovePlain(const ProviderModules& provider, const std::vector<std::string>& services, ChangeSet& changes);

template <typename Edit>
std::string EditOf(const std::string& path, Edit edit) try {
    return edit();
} catch (const LoginsError& error) {
    throw LoginsError(error.Reason(), "'" + path + "' cannot be edited: " + error.what(), error.Remedy());
}

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_PLAN_H_
