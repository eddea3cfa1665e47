#include "tools/loginfiles/trial_answers.h"

#include <algorithm>
#include <string_view>

#include "tools/loginfiles/pam_jumps.h"

namespace nimbrel::logins {
namespace {

// Who is asked for, as modules see it.
struct Person {
    bool right = false;  // the password
    bool isRoot = false;
    bool isLocal = false;
    std::string module;  // the directory's answer
    Others others = Others::Ignore;
    bool passesAsLocal = false;  // rules for local users only
};

std::string Always(const std::string& result) {
    std::string arguments;
    for (const char* const call : {"auth", "cred", "acct", "prechauthtok", "chauthtok", "open_session"}) {
        arguments += (arguments.empty() ? "" : " ") + std::string(call) + '=' + result;
    }
    return arguments;
}

std::string Password(bool right) {
    if (right) return Always("success");
    return "auth=auth_err cred=success acct=success prechauthtok=auth_err chauthtok=auth_err open_session=success";
}

bool IsAny(const std::string& name, std::initializer_list<const char*> names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

constexpr char kNotLocal[] = "perm_denied";  // what pam_localuser.so answers
constexpr char kBetween[] = " \t\n[]=";

std::string_view TakeWord(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBetween), rest.size()));
    const std::string_view word = rest.substr(0, rest.find_first_of(kBetween));
    rest.remove_prefix(word.size());
    return word;
}

// What a list does with this answer.
std::string_view ActionOn(std::string_view wanted, std::string_view control) {
    std::string_view byDefault;
    for (std::string_view answer = TakeWord(control); !answer.empty(); answer = TakeWord(control)) {
        const std::string_view action = TakeWord(control);
        if (answer == wanted) return action;
        if (answer == "default") byDefault = action;
    }
    return byDefault;
}

// Rules whose yes is kept while the stack goes on. One such yes lets in whom nobody refuses, also if it is "optional".
bool IsCondition(const PamLine& line) {
    return IsAny(line.control, {"required", "requisite", "optional"}) || ActionOn("success", line.control) == "ok";
}

// pam_usertype.so tells accounts of the system from those of people.
bool IsOfType(const PamLine& line, const Person& person) {
    const auto& words = line.arguments;
    const bool asksForSystem = std::find(words.begin(), words.end(), "issystem") != words.end();
    return asksForSystem == person.isRoot;
}

std::string Answer(const ProviderModules& provider, const Person& person, const PamLine& line) {
    const std::string name = ModuleName(line);
    if (IsAny(name, {"pam_deny.so", "pam_permit.so"})) return "";
    if (name == provider.pamModule) return person.isLocal ? Always(person.module) : Password(person.right);
    if (name == "pam_unix.so") return Password(person.right && person.isLocal);
    if (name == kGuard) {
        const bool passes = person.isLocal || (person.passesAsLocal && IsForLocalUsersOnly(line));
        return Always(passes ? "success" : kNotLocal);
    }
    if (name == "pam_usertype.so") return Always(IsOfType(line, person) ? "success" : "auth_err");
    if (name == "pam_rootok.so" && !person.isRoot) return Always("ignore");
    const bool agrees =
        person.right || person.others == Others::AgreeAll || (person.others == Others::Agree && IsCondition(line));
    return Always(agrees ? "success" : "ignore");
}

Answers Of(const ProviderModules& provider, const Person& person) {
    return [provider, person](const PamLine& line) { return Answer(provider, person, line); };
}

}  // namespace

Answers Root(const ProviderModules& provider, bool right, const std::string& directory, Others others) {
    return Of(provider, {right, true, true, directory, others});
}

Answers LocalUser(const ProviderModules& provider, bool right, const std::string& directory, Others others) {
    return Of(provider, {right, false, true, directory, others});
}

Answers DirectoryUser(const ProviderModules& provider, bool right, Others others) {
    return Of(provider, {right, false, false, "", others});
}

Answers DirectoryUserAsLocal(const ProviderModules& provider) {
    return Of(provider, {true, false, false, "", Others::Agree, true});
}

bool IsForLocalUsersOnly(const PamLine& line) {
    if (ModuleName(line) != kGuard) return false;
    const std::string_view refused = ActionOn(kNotLocal, line.control);
    return IsAny(line.control, {"required", "requisite"}) || refused == "bad" || refused == "die";
}

}  // namespace nimbrel::logins
