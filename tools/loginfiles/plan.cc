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
        // One that others include is read all the same.
        if (files.contains(service) && !IsMasked(PathOf(service))) continue;
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

// Whose rules somebody else counts: the host's tool, anew. Our copy of a vendor's file gives way to the vendor's again,
// whatever has become of that since; with its package gone, to nothing.
IsMade MadeBy(Mechanism mechanism, const std::vector<Change>& changes, bool isWayBack) {
    return [=, &changes](const std::string& name) {
        const bool goes = std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
            return change.path == PathOf(name) && change.after.kind == FileState::Kind::Absent;
        });
        return (isWayBack && goes) || (mechanism == Mechanism::PamAuthUpdate && IsMadeByPamAuthUpdate(name)) ||
               (mechanism == Mechanism::Authselect && IsMadeByAuthselect(name, changes));
    };
}

void Prove(const std::vector<Change>& changes, const ProviderModules& provider, bool isWayBack = false) {
    if (changes.empty()) return;
    ProveJumpsKept(ReadPamFiles(), FilesAfter(changes), provider.pamModule,
                   MadeBy(HostMechanism(), changes, isWayBack));
}

bool IsProvenWayBack(const std::vector<Change>& changes, const ProviderModules& provider) try {
    Prove(changes, provider, true);
    return true;
} catch (const LoginsError& error) {
    if (error.Reason() != LoginsError::Kind::Refused) throw;
    return false;
}

// Walks the journal backwards through every change that still stands and puts its files back, as long as each is what
// that change left. Unset if somebody else has changed one of them, if the module is still there in the end, or if a
// jump would not end where it does now.
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
    return IsProvenWayBack(changes, provider) ? std::optional(std::move(changes)) : std::nullopt;
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

// Of the files that only lose lines, which may be copies of ours: nothing but the journal knew.
void NoteHidden(Plan& plan) {
    for (const Change& change : plan.changes) {
        const std::string name = change.path.substr(change.path.rfind('/') + 1);
        const bool isService = FolderOf(change.path) == kPamFolder && change.after.kind == FileState::Kind::Regular;
        for (const char* const folder : kVendorFolders) {
            const std::string vendors = std::string(folder) + '/' + name;
            if (!isService || access(vendors.c_str(), F_OK) != 0) continue;
            plan.notes.push_back("'" + change.path + "' goes on hiding the vendor's '" + vendors +
                                 "': remove it unless it is a file of your own");
            break;
        }
    }
}

// What has to go, wherever it came from.
Plan DisablingPlan(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services) {
    const Mechanism mechanism = HostMechanism();
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
    NoteHidden(plan);
    return plan;
}

}  // namespace

Plan PlanEnable(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services) {
    Plan plan = EnablingPlan(journal, provider, services);
    Prove(plan.changes, provider);
    return plan;
}

Plan PlanDisable(const Journal& journal, const ProviderModules& provider, const std::vector<std::string>& services) {
    RequireServices(services);
    const Mechanism mechanism = HostMechanism();
    if (mechanism == Mechanism::Authselect) RequireAllServices(services);
    if (mechanism == Mechanism::PamAuthUpdate) RequireNoneIsMade(services);
    if (services.empty()) {
        if (std::optional<std::vector<Change>> back = ExactWayBack(journal, provider)) {
            return {Name(mechanism), std::move(*back)};
        }
    }
    Plan plan = DisablingPlan(journal, provider, services);
    Prove(plan.changes, provider);
    return plan;
}

}  // namespace nimbrel::logins
