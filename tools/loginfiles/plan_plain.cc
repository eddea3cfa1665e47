#include <unistd.h>

#include <algorithm>

#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/plan.h"

namespace nimbrel::logins {
namespace {

constexpr char kPassword[] = "pam_unix.so";

// Without named services: the files that ask pam_unix.so themselves, the shared ones among them.
std::vector<std::string> Concerned(const PamFiles& files, const std::vector<std::string>& services) {
    if (!services.empty()) return services;
    std::vector<std::string> names;
    for (const auto& [name, text] : files) {
        if (IsService(name) && HasPamModule(text, kPassword)) names.push_back(name);
    }
    return names;
}

}  // namespace

void AddPlain(const ProviderModules& provider, const std::vector<std::string>& services, ChangeSet& changes) {
    const PamFiles files = ReadPamFiles();
    bool any = false;
    for (const std::string& name : Concerned(files, services)) {
        const std::string after = EditOf(PathOf(name), [&] { return WithPamModule(files, name, provider); });
        const bool changed = after != files.at(name);  // else a vendor's file needs no copy of it
        if (changed) changes.SetContent(PathOf(name), after);
        any = any || changed || Uses(files, name, "auth", provider.pamModule);
    }
    if (any) return;
    throw LoginsError(LoginsError::Kind::Refused,
                      "no PAM file leads to pam_unix.so, so there is no place for the module", "add the rules by hand");
}

void RemovePlain(const ProviderModules& provider, const std::vector<std::string>& services, ChangeSet& changes) {
    const bool debian = HostMechanism() == Mechanism::PamAuthUpdate;
    PamFiles files = ReadPamFiles();
    for (auto& [name, text] : files) {
        if (IsService(name) && !IsMasked(PathOf(name))) text = changes.Content(PathOf(name)).value_or(text);
    }
    const PamFiles before = files;
    for (const auto& file : before) {
        const std::string& name = file.first;
        if (!IsService(name) || IsMasked(PathOf(name))) continue;
        if (debian && IsMadeByPamAuthUpdate(name)) continue;  // another profile's rules are not ours
        const bool meant = services.empty() || std::find(services.begin(), services.end(), name) != services.end();
        const bool there = changes.Content(PathOf(name)).has_value();  // a vendor's own file is not ours to edit
        if (!meant || !there || !HasPamModule(file.second, provider.pamModule)) continue;
        files[name] = EditOf(PathOf(name), [&] { return WithoutPamModule(files, name, provider.pamModule); });
        changes.SetContent(PathOf(name), files[name]);
    }
}

}  // namespace nimbrel::logins
