#include "tools/loginfiles/plan.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>

#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/pam_jumps.h"

namespace nimbrel::logins {
namespace {

constexpr char kVendorNsswitch[] = "/usr/etc/nsswitch.conf";

// Where the host has no file of its own, the C library may have its vendor's; one of ours would hide that.
std::string NsswitchToBegin() {
    if (access(kVendorNsswitch, F_OK) == 0) return ReadWhole(Resolve(kVendorNsswitch));
    throw LoginsError(LoginsError::Kind::Refused, std::string("there is no ") + kNsswitch,
                      "make one with the sources that this host uses for each database");
}

void EditNsswitch(const ProviderModules& provider, bool enable, ChangeSet& changes) {
    const std::optional<std::string> present = changes.Content(kNsswitch);
    if (!present && !enable) return;
    const std::string text = present ? *present : NsswitchToBegin();
    changes.SetContent(kNsswitch, EditOf(kNsswitch, [&] {
                           return enable ? WithNssService(text, provider) : WithoutNssService(text, provider);
                       }));
}

void RequireServices(const std::vector<std::string>& services) {
    const PamFiles files = ReadPamFiles();
    for (const std::string& service : services) {
        if (files.contains(service)) continue;
        throw LoginsError(LoginsError::Kind::Refused, "there is no PAM service '" + service + "'",
                          "'nimauthctl logins show' lists the services");
    }
}

void RequireAllServices(const std::vector<std::string>& services) {
    if (services.empty()) return;
    throw LoginsError(LoginsError::Kind::Refused, "authselect manages this host, and all its services together",
                      "leave out --services");
}

// What pam-auth-update makes, it makes again from the profiles: rules of ours in it would go, or stay for ever.
void RequireNoneIsMade(const std::vector<std::string>& services) {
    const auto made = std::find_if(services.begin(), services.end(), IsMadeByPamAuthUpdate);
    if (made == services.end()) return;
    throw LoginsError(LoginsError::Kind::Refused, "pam-auth-update makes '" + *made + "'",
                      "name the services themselves, or leave out --services for all of them");
}

bool AnyFileHas(const PamFiles& files, const std::string& module) {
    return std::any_of(files.begin(), files.end(), [&](const auto& file) { return HasPamModule(file.second, module); });
}

// Walks the journal backwards through every change that still stands and puts its files back, as long as each is what
// that change left. Unset if somebody else has changed one of them, or if the module is still there in the end.
std::optional<std::vector<Change>> ExactWayBack(const Journal& journal, const ProviderModules& provider) {
    ChangeSet back;
    std::vector<Entry> entries = journal.Entries();
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (entry->progress != Progress::Confirmed || entry->record.undoes != 0) continue;
        if (entry->record.action != "enable") break;
        for (const Change& change : entry->record.changes) {
            if (back.ExactState(change.path) != change.after) return std::nullopt;
            back.SetExactly(change.path, change.before);
        }
    }
    std::vector<Change> changes = back.Take();
    if (changes.empty() || AnyFileHas(FilesAfter(changes), provider.pamModule)) return std::nullopt;
    return changes;
}

}  // namespace

const char* Name(Mechanism mechanism) {
    switch (mechanism) {
        case Mechanism::PamAuthUpdate:
            return "pam-auth-update";
        case Mechanism::Authselect:
            return "authselect";
        case Mechanism::Plain:
            break;
    }
    return "plain";
}

Mechanism HostMechanism() {
    if (access("/etc/authselect/authselect.conf", F_OK) == 0) return Mechanism::Authselect;
    const bool debian = access("/usr/sbin/pam-auth-update", X_OK) == 0 && access("/etc/pam.d/common-auth", F_OK) == 0;
    return debian ? Mechanism::PamAuthUpdate : Mechanism::Plain;
}

Change& ChangeSet::AtExactly(const std::string& path) {
    const auto found =
        std::find_if(_changes.begin(), _changes.end(), [&](const Change& change) { return change.path == path; });
    if (found != _changes.end()) return *found;
    const FileState now = ReadState(path);
    _changes.push_back({path, now, now});
    return _changes.back();
}

Change& ChangeSet::At(const std::string& path) { return AtExactly(Resolve(path)); }

std::optional<std::string> ChangeSet::Content(const std::string& path) {
    const FileState& after = At(path).after;
    return after.kind == FileState::Kind::Regular ? std::optional(after.content) : std::nullopt;
}

void ChangeSet::SetContent(const std::string& path, const std::string& content) {
    Change& change = At(path);
    change.after = change.after.With(content);
}

void ChangeSet::Remove(const std::string& path) { At(path).after = {}; }

std::vector<Change> ChangeSet::Take() {
    std::erase_if(_changes, [](const Change& change) { return change.before == change.after; });
    return std::move(_changes);
}

namespace {

// Whose rules the host's tool counts, and counts anew.
IsMade MadeBy(Mechanism mechanism) {
    switch (mechanism) {
        case Mechanism::PamAuthUpdate:
            return IsMadeByPamAuthUpdate;
        case Mechanism::Authselect:
            return IsMadeByAuthselect;
        case Mechanism::Plain:
            break;
    }
    return nullptr;
}

Plan Proven(Plan plan, const ProviderModules& provider) {
    ProveJumpsKept(ReadPamFiles(), FilesAfter(plan.changes), provider.pamModule, MadeBy(HostMechanism()));
    return plan;
}

Plan EnablingPlan(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services) {
    RequireServices(services);
    const Mechanism mechanism = HostMechanism();
    if (mechanism == Mechanism::PamAuthUpdate) RequireNoneIsMade(services);
    ChangeSet changes;
    if (mechanism == Mechanism::Authselect) {
        RequireAllServices(services);
        EnableAuthselect(journal, provider, changes);
        return {Name(mechanism), changes.Take()};
    }
    const bool whole = mechanism == Mechanism::PamAuthUpdate && services.empty();
    if (whole) {
        EnablePamAuthUpdate(journal, provider, changes);
    } else {
        AddPlain(provider, services, changes);
    }
    EditNsswitch(provider, true, changes);
    return {Name(whole ? mechanism : Mechanism::Plain), changes.Take()};
}

Plan DisablingPlan(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services) {
    RequireServices(services);
    const Mechanism mechanism = HostMechanism();
    if (mechanism == Mechanism::Authselect) RequireAllServices(services);
    if (mechanism == Mechanism::PamAuthUpdate) RequireNoneIsMade(services);
    if (services.empty()) {
        if (std::optional<std::vector<Change>> back = ExactWayBack(journal, provider)) {
            return {Name(mechanism), std::move(*back)};
        }
    }
    ChangeSet changes;
    if (mechanism == Mechanism::Authselect) {
        DisableAuthselect(journal, provider, changes);
        return {Name(mechanism), changes.Take()};
    }
    if (mechanism == Mechanism::PamAuthUpdate && services.empty()) {
        DisablePamAuthUpdate(journal, provider, changes);
    }
    RemovePlain(provider, services, changes);
    ChangeSet names = changes;
    const bool unused = !AnyFileHas(FilesAfter(names.Take()), provider.pamModule);
    if (unused) EditNsswitch(provider, false, changes);
    Plan plan = {Name(mechanism), changes.Take()};
    if (!unused) plan.notes.emplace_back("other services still have the module, so the name services stay");
    return plan;
}

}  // namespace

Plan PlanEnable(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services) {
    return Proven(EnablingPlan(journal, provider, services), provider);
}

Plan PlanDisable(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services) {
    return Proven(DisablingPlan(journal, provider, services), provider);
}

namespace {

using ByPath = std::map<std::string, const FileState*>;

// What a reader of the path would find; unset if nothing, or a link that leads nowhere.
std::optional<std::string> TextAfter(std::string path, const ByPath& after) {
    for (int links = 0; links < 8; ++links) {
        const auto change = after.find(path);
        const FileState state = change == after.end() ? ReadLinkedState(path) : *change->second;
        if (state.kind == FileState::Kind::Absent) return std::nullopt;
        if (state.kind == FileState::Kind::Regular) return state.content;
        path = (std::filesystem::path(FolderOf(path)) / state.content).lexically_normal();
    }
    return std::nullopt;
}

}  // namespace

PamFiles FilesAfter(const std::vector<Change>& changes) {
    ByPath after;
    PamFiles files = ReadPamFiles();
    for (const Change& change : changes) {
        after[change.path] = &change.after;
        const std::string name = change.path.substr(change.path.rfind('/') + 1);
        if (FolderOf(change.path) == kPamFolder && !IsBackup(name)) files[name];
    }
    for (auto file = files.begin(); file != files.end();) {
        const bool isService = IsService(file->first);
        std::optional<std::string> text = TextAfter(isService ? PathOf(file->first) : file->first, after);
        for (const char* const folder : kVendorFolders) {
            if (!text && isService) text = TextAfter(std::string(folder) + '/' + file->first, after);
        }
        if (text) file->second = *text;
        file = text ? std::next(file) : files.erase(file);
    }
    return files;
}

}  // namespace nimbrel::logins
