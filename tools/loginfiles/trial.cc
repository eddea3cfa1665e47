#include "tools/loginfiles/trial.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <system_error>

#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/pam_jumps.h"
#include "tools/loginfiles/run.h"
#include "tools/loginfiles/trial_answers.h"
#include "tools/loginfiles/watch.h"

namespace nimbrel::logins {
namespace {

constexpr std::array<const char*, 5> kModuleFolders = {"/lib/" NIMAUTH_MULTIARCH "/security",
                                                       "/usr/lib/" NIMAUTH_MULTIARCH "/security", "/lib64/security",
                                                       "/usr/lib64/security", "/lib/security"};
constexpr std::array<const char*, 4> kLibraryFolders = {"/lib/" NIMAUTH_MULTIARCH, "/usr/lib/" NIMAUTH_MULTIARCH,
                                                        "/lib64", "/usr/lib64"};

template <typename Folders>
std::string FindIn(const Folders& folders, const std::string& name) {
    if (name.starts_with('/')) return name;
    for (const char* const folder : folders) {
        std::string path = std::string(folder) + '/' + name;
        if (access(path.c_str(), F_OK) == 0) return path;
    }
    throw LoginsError(LoginsError::Kind::Refused, "'" + name + "' is not installed",
                      "install the package that holds it; logins through it would fail");
}

// A line with another file or module in its place.
std::string WithModule(const PamLine& line, const std::string& module, const std::string& arguments) {
    if (line.kind == PamLine::Kind::Include) return "@include " + module + '\n';
    return (line.optional ? "-" : "") + line.type + ' ' + line.control + ' ' + module + ' ' + arguments + '\n';
}

// Where each file of a copy is, by its name among the service files.
using Places = std::map<std::string, std::string>;

Places PlacesIn(const std::string& folder, const PamFiles& files) {
    Places places;
    for (const auto& [name, text] : files) {
        // libpam is never asked for a service of such a name.
        const std::string file = IsService(name) ? name : ".elsewhere-" + std::to_string(places.size());
        places[name] = folder + '/' + file;
    }
    return places;
}

// libpam itself falls over an include without a name, and takes the beginning of a line that is too long for a rule.
bool MayBeTried(std::string raw) {
    for (char& c : raw) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return raw.size() < 1024 && raw.find("include") == std::string::npos && raw.find("substack") == std::string::npos;
}

// Whatever a rule includes lies in the copy or nowhere: nothing that is tried may come from the host's live files, whose
// modules would count and lock.
std::string Rewrite(const std::string& text, const std::string& folder, const Places& places, const Answers& answers) {
    std::string rewritten;
    for (const PamLine& line : ParsePam(text)) {
        if (line.kind == PamLine::Kind::Nothing) {
            rewritten += line.raw;
        } else if (line.kind == PamLine::Kind::Unreadable) {
            rewritten += MayBeTried(line.raw) ? line.raw : "unreadable\n";
        } else if (line.IncludesAnother()) {
            const auto place = places.find(IncludedName(line.module));
            rewritten += WithModule(line, place == places.end() ? folder + "/.missing" : place->second, "");
        } else {
            const std::string answer = answers ? answers(line) : "";
            rewritten += answer.empty() ? line.raw : WithModule(line, "pam_debug.so", answer);
        }
    }
    return rewritten;
}

// The types of rules that a step asks, the first one first.
std::vector<std::string> TypesOf(const std::string& step) {
    if (step == kLogIn) return {"auth", "account"};
    return {step == kChangePassword ? "password" : "session"};
}

// Of a failure: "sshd\tlog in".
std::pair<std::string, std::string> ServiceAndStep(const std::string& what) {
    const std::size_t tab = what.find('\t');
    return {what.substr(0, tab), what.substr(tab + 1)};
}

[[noreturn]] void RefuseStep(const std::string& who, const std::string& service, const std::string& step,
                             const std::string& reason) {
    throw LoginsError(LoginsError::Kind::Refused, who + " could not " + step + " through '" + service + "': " + reason,
                      "look at the rules of /etc/pam.d/" + service + " that jump or end the stack");
}

class Trial {
 public:
    Trial(const Journal& journal, const ProviderModules& provider, const Candidate& candidate)
        : _provider(provider), _candidate(candidate), _root(journal.MakeCandidateFolder()) {
        for (const auto& [name, text] : candidate.after) {
            if (IsService(name) && (IsNamed(name) || Differs(name))) _services.push_back(name);
        }
    }
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;
    ~Trial() {
        std::error_code ignored;  // left over for the next call to remove
        std::filesystem::remove_all(_root, ignored);
    }

    void Run() {
        if (_candidate.enable) LoadModules();
        if (_services.empty()) return;
        Open();
        for (const char* const directory : {"user_unknown", "authinfo_unavail", "module_unknown"}) {
            MustEnter("root with the right password", Root(_provider, true, directory, Others::Agree));
            MustEnter("a local user with the right password", LocalUser(_provider, true, directory, Others::Agree));
        }
        for (const Others others : {Others::Ignore, Others::Agree, Others::AgreeAll}) {
            MustNotEnter("root with a wrong password", Root(_provider, false, "user_unknown", others));
            MustNotEnter("a local user with a wrong password", LocalUser(_provider, false, "user_unknown", others));
            MustNotEnter("a directory user with a wrong password", DirectoryUser(_provider, false, others));
        }
        if (!_candidate.enable) return;
        _closed = Ask("enter", _candidate.before, LocalUser(_provider, true, "user_unknown", Others::Agree));
        DirectoryUserMustEnter();
    }

 private:
    using Failures = std::map<std::string, std::string>;  // by what failed: "sshd", "sshd\topen a session"

    bool IsNamed(const std::string& name) const {
        return std::find(_candidate.named.begin(), _candidate.named.end(), name) != _candidate.named.end();
    }
    bool Differs(const std::string& name) const;
    // Others have no log-in of their own: "systemd-user", "runuser".
    bool AsksForPassword(const std::string& service) const {
        return Uses(_candidate.after, service, "auth", "pam_unix.so");
    }
    std::string Write(const PamFiles& files, const Answers& answers);
    Failures Ask(const std::string& question, const std::vector<std::string>& words) const;
    Failures Ask(const std::string& question, const PamFiles& files, const Answers& answers) {
        return Ask(question, files, answers, _services);
    }
    Failures Ask(const std::string& question, const PamFiles& files, const Answers& answers,
                 const std::vector<std::string>& services);
    void LoadModules() const;
    void Open();
    bool IsExcused(const std::string& service, const std::string& step, bool failedBefore) const;
    bool IsExcusedToDirectory(const std::string& service, const std::string& step, bool failedBefore) const;
    bool AllRefuse(const Failures& failures) const;
    [[noreturn]] void RefuseLocalOnly(const std::string& who, const std::string& step, const std::string& where,
                                      const std::string& service) const;
    std::string FileForLocalUsersOnly(const std::string& service, const std::string& step) const;
    bool LetsADirectoryUserIn();
    void MustEnter(const std::string& who, const Answers& answers);
    void DirectoryUserMustEnter();
    void MustNotEnter(const std::string& who, const Answers& answers);
    std::string RemedyForOpenDoor(const std::string& service) const;

    const ProviderModules& _provider;
    const Candidate& _candidate;
    std::string _root;
    std::vector<std::string> _services;  // those that the change concerns
    Failures _closed;                    // where nobody got in before, whatever the password
    int _folders = 0;
};

bool Trial::Differs(const std::string& name) const {
    const auto text = [&](const PamFiles& files) {
        std::string all;
        for (const EffectiveRule& rule : EffectiveStack(files, name)) all += rule.line.raw;
        return all;
    };
    return text(_candidate.before) != text(_candidate.after);
}

// A folder of service files in which every module is replaced as `answers` says; null leaves the real ones.
std::string Trial::Write(const PamFiles& files, const Answers& answers) {
    std::string folder = _root + '/' + std::to_string(++_folders);
    std::filesystem::create_directory(folder);
    const Places places = PlacesIn(folder, files);
    for (const auto& [name, text] : files) WriteQuickly(places.at(name), Rewrite(text, folder, places, answers));
    return folder;
}

Trial::Failures Trial::Ask(const std::string& question, const std::vector<std::string>& words) const {
    std::vector<std::string> all = {kHelper, question};
    all.insert(all.end(), words.begin(), words.end());
    const RunResult result = nimbrel::logins::Run(all);
    if (result.status != 0) {
        throw LoginsError(LoginsError::Kind::Refused,
                          "the trial of the candidate ended early, a module may be broken: " + result.output);
    }
    Failures failures;
    std::istringstream lines(result.output);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(lines, line);) {
        const std::size_t tab = line.rfind('\t');
        if (tab != std::string::npos) failures[line.substr(0, tab)] = line.substr(tab + 1);
    }
    return failures;
}

Trial::Failures Trial::Ask(const std::string& question, const PamFiles& files, const Answers& answers,
                           const std::vector<std::string>& services) {
    std::vector<std::string> words = {Write(files, answers)};
    words.insert(words.end(), services.begin(), services.end());
    return Ask(question, words);
}

void Trial::LoadModules() const {
    std::vector<std::string> paths = {FindIn(kModuleFolders, _provider.pamModule),
                                      FindIn(kLibraryFolders, "libnss_" + _provider.nssService + ".so.2")};
    // Without it, local accounts would not pass the directory's rules by.
    const bool guarded = std::any_of(_candidate.after.begin(), _candidate.after.end(),
                                     [](const auto& file) { return HasPamModule(file.second, kGuard); });
    if (guarded) paths.push_back(FindIn(kModuleFolders, kGuard));
    const Failures failures = Ask("load", paths);
    if (failures.empty()) return;
    throw LoginsError(LoginsError::Kind::Refused,
                      "'" + failures.begin()->first + "' cannot be loaded: " + failures.begin()->second,
                      "install what it needs");
}

void Trial::Open() {
    const Failures before = Ask("open", _candidate.before, nullptr);
    const Failures after = Ask("open", _candidate.after, nullptr);
    for (const auto& [service, reason] : after) {
        if (before.contains(service) && !IsNamed(service)) continue;
        throw LoginsError(LoginsError::Kind::Refused, "libpam cannot open the service '" + service + "': " + reason,
                          "look at /etc/pam.d/" + service + " and the files that it includes");
    }
    std::erase_if(_services, [&](const std::string& service) { return after.contains(service); });
}

// A failure that was there before, or the service's own.
bool Trial::IsExcused(const std::string& service, const std::string& step, bool failedBefore) const {
    const bool mustLetIn = IsNamed(service) && step == kLogIn && AsksForPassword(service);
    return failedBefore && !mustLetIn;
}

// The same for a directory user, who got in nowhere before: the module has no say in it, or even local users did not.
bool Trial::IsExcusedToDirectory(const std::string& service, const std::string& step, bool failedBefore) const {
    if (!IsNamed(service) && _closed.contains(service + '\t' + step)) return true;
    const std::string type = TypesOf(step).front();
    const bool had = Uses(_candidate.before, service, type, _provider.pamModule);
    return !Uses(_candidate.after, service, type, _provider.pamModule) || (step != kLogIn && had && failedBefore);
}

void Trial::MustEnter(const std::string& who, const Answers& answers) {
    const Failures after = Ask("enter", _candidate.after, answers);
    if (after.empty()) return;
    const Failures before = Ask("enter", _candidate.before, answers);
    for (const auto& [what, reason] : after) {
        const auto [service, step] = ServiceAndStep(what);
        if (!IsExcused(service, step, before.contains(what))) RefuseStep(who, service, step, reason);
    }
}

// The file whose rule keeps directory users out; a service without rules of a type has those of "other".
std::string Trial::FileForLocalUsersOnly(const std::string& service, const std::string& step) const {
    for (const std::string& name : {service, std::string("other")}) {
        for (const std::string& type : TypesOf(step)) {
            for (const EffectiveRule& rule : EffectiveStack(_candidate.after, name, type)) {
                if (IsForLocalUsersOnly(rule.line)) return rule.file;
            }
        }
    }
    return service;
}

void Trial::RefuseLocalOnly(const std::string& who, const std::string& step, const std::string& where,
                            const std::string& service) const {
    const std::string file = FileForLocalUsersOnly(service, step);
    throw LoginsError(
        LoginsError::Kind::Refused,
        who + " could not " + step + " through " + where + ": pam_localuser.so in '" + file +
            "' lets in local users only",
        std::string(IsNamed(service) ? "leave that service out, or " : "") + "take that rule out of '" + file + "'");
}

// Also through a service that had the module before.
bool Trial::LetsADirectoryUserIn() {
    std::vector<std::string> services;
    for (const auto& [name, text] : _candidate.after) {
        const bool mayLetIn = IsService(name) && Uses(_candidate.after, name, "auth", _provider.pamModule);
        if (mayLetIn) services.push_back(name);
    }
    const Answers answers = DirectoryUser(_provider, true, Others::Agree);
    const Failures failures = Ask("enter", _candidate.after, answers, services);
    return std::any_of(services.begin(), services.end(),
                       [&](const std::string& service) { return !failures.contains(service + '\t' + kLogIn); });
}

// An administrator's own rule may keep the directory's users out of a service, but not of all: nobody wants the logins
// then, and nothing else would tell.
void Trial::DirectoryUserMustEnter() {
    const std::string who = "a directory user with the right password";
    const Failures after = Ask("enter", _candidate.after, DirectoryUser(_provider, true, Others::Agree));
    if (after.empty()) return;
    const Failures before = Ask("enter", _candidate.before, DirectoryUser(_provider, true, Others::Agree));
    const Failures asLocal = Ask("enter", _candidate.after, DirectoryUserAsLocal(_provider));
    std::string shut;
    for (const auto& [what, reason] : after) {
        const auto [service, step] = ServiceAndStep(what);
        if (IsExcusedToDirectory(service, step, before.contains(what))) continue;
        if (asLocal.contains(what)) RefuseStep(who, service, step, reason);
        if (IsNamed(service)) RefuseLocalOnly(who, step, "'" + service + "'", service);
        if (shut.empty() && step == kLogIn) shut = service;
    }
    if (!shut.empty() && !LetsADirectoryUserIn()) RefuseLocalOnly(who, kLogIn, "any service", shut);
}

bool Trial::AllRefuse(const Failures& failures) const {
    return std::all_of(_services.begin(), _services.end(), [&](const std::string& service) {
        return failures.contains(service + '\t' + kLogIn) && failures.contains(service + '\t' + kChangePassword);
    });
}

// What goes leaves the stack open; what comes can only be in the way of a jump.
std::string Trial::RemedyForOpenDoor(const std::string& service) const {
    const std::string& module = _provider.pamModule;
    if (_candidate.enable) return "look at the rules of /etc/pam.d/" + service + " that jump or end the stack";
    // pam-config writes "required pam_sss.so" as the last rule, behind a "sufficient" one.
    const bool made = _candidate.before.contains("common-auth-pc") && module == "pam_sss.so";
    return made ? "let the tool that made the rules take them out: 'pam-config --delete --sss'"
                : "nothing but " + module +
                      " refuses there: make its rule 'sufficient' and put 'required pam_deny.so' behind it";
}

void Trial::MustNotEnter(const std::string& who, const Answers& answers) {
    const Failures after = Ask("enter", _candidate.after, answers);
    if (AllRefuse(after)) return;
    const Failures before = Ask("enter", _candidate.before, answers);
    for (const auto& [what, reason] : before) {
        const auto [service, step] = ServiceAndStep(what);
        if (after.contains(what) || step == kOpenSession) continue;
        const std::string harm = step == kLogIn ? " would be let in by '" : " could change the password through '";
        throw LoginsError(LoginsError::Kind::Refused, who + harm + service + "'", RemedyForOpenDoor(service));
    }
}

}  // namespace

void Try(const Journal& journal, const ProviderModules& provider, const Candidate& candidate) {
    Trial(journal, provider, candidate).Run();
}

}  // namespace nimbrel::logins
