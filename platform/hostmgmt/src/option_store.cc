#include "option_store.h"

#include <pthread.h>

#include <algorithm>
#include <cstdint>

namespace HostMgmt::Adv {
namespace {

using OrbConfigStore::ConfigStoreObject;
using OrbConfigStore::ConfigStoreObjectId;

constexpr char kRemovedType[] = "removed";
constexpr char kIndexKey[] = "index";

// The options that every host has. Plain texts: a thread may still read them while the process exits.
constexpr struct HostOption {
    const char* fullName;
    const char* type;
    const char* value;
    const char* description;
} kHostOptions[] = {{"UserVars.ActiveDirectoryVerifyAPXCertificate", kIntegerType, "1",
                     "Verify the certificate of the authentication proxy: 1 for yes, 0 for no."}};

const HostOption* FindHostOption(const std::string& fullName) {
    const auto* const found = std::find_if(std::begin(kHostOptions), std::end(kHostOptions),
                                           [&](const HostOption& option) { return option.fullName == fullName; });
    return found == std::end(kHostOptions) ? nullptr : found;
}

ConfigStoreObjectId IdOf(const std::string& key) { return {key.c_str(), "advanced_options", "hostmgmt"}; }

bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

// Parts of name characters joined by single dots. "index" is the key of the index.
bool IsFullName(const std::string& text) {
    if (text.empty() || text == kIndexKey || text.front() == '.' || text.back() == '.') return false;
    if (text.find("..") != std::string::npos) return false;
    return std::all_of(text.begin(), text.end(), [](char c) { return c == '.' || IsNameCharacter(c); });
}

void RequireFullName(const std::string& text) {
    if (IsFullName(text)) return;
    throw Lib::HostMgmtException(("'" + text + "' is not the full name of an advanced option").c_str());
}

// One change at a time in this process: each reads the index, or the option, changes it and writes it back. Held during
// each fork, as the store's own lock is, so that the child can change options, too.
pthread_mutex_t changeMutex = PTHREAD_MUTEX_INITIALIZER;

void LockChanges() { pthread_mutex_lock(&changeMutex); }
void UnlockChanges() { pthread_mutex_unlock(&changeMutex); }

// After the store has registered its lock, which is taken while this one is held.
__attribute__((constructor)) void RegisterForForks() { pthread_atfork(LockChanges, UnlockChanges, UnlockChanges); }

class Change {
 public:
    Change() { LockChanges(); }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;
    ~Change() { UnlockChanges(); }
};

}  // namespace

OptionStore::OptionStore() : _store(OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace)) {}

std::optional<OptionRecord> OptionStore::Find(const std::string& fullName) const {
    if (!IsFullName(fullName)) return std::nullopt;
    if (const auto object = _store->GetObject(IdOf(fullName))) {
        OptionRecord record;
        object->GetValue("type", &record.type);
        object->GetValue("value", &record.value);
        object->GetValue("description", &record.description);
        if (record.type == kRemovedType) return std::nullopt;
        return record;
    }
    const HostOption* const option = FindHostOption(fullName);
    if (option == nullptr) return std::nullopt;
    return OptionRecord{option->type, option->value, option->description};
}

void OptionStore::Write(const std::string& fullName, const OptionRecord& record) {
    const auto object = std::make_shared<ConfigStoreObject>(IdOf(fullName));
    object->SetValue("type", record.type);
    object->SetValue("value", record.value);
    object->SetValue("description", record.description);
    std::uint32_t word = 0;
    _store->SetObject(object, word);
}

void OptionStore::Rewrite(const std::string& fullName, const Rewriting& rewriting) {
    const Change change;
    Write(fullName, rewriting(Find(fullName)));
}

// The index names an option before it exists and after it is gone, so that a failure in between leaves an entry too many
// and never an option that cannot be listed.
void OptionStore::Declare(const std::string& fullName, const OptionRecord& record) {
    RequireFullName(fullName);
    const Change change;
    SetIndexed(fullName, true);
    Write(fullName, record);
}

void OptionStore::Remove(const std::string& fullName) {
    RequireFullName(fullName);
    const Change change;
    if (FindHostOption(fullName) == nullptr) return Forget(fullName);
    Write(fullName, {kRemovedType, "", ""});
}

void OptionStore::Restore(const std::string& fullName) {
    RequireFullName(fullName);
    const Change change;
    Forget(fullName);
}

std::set<std::string> OptionStore::FullNames() const {
    std::set<std::string> candidates;
    for (const HostOption& option : kHostOptions) candidates.insert(option.fullName);
    if (const auto index = _store->GetObject(IdOf(kIndexKey))) {
        for (const auto& [fullName, unused] : index->Values()) candidates.insert(fullName);
    }
    std::set<std::string> existing;
    for (const std::string& fullName : candidates) {
        if (Find(fullName)) existing.insert(fullName);
    }
    return existing;
}

void OptionStore::Forget(const std::string& fullName) {
    _store->RemoveObject(IdOf(fullName));
    SetIndexed(fullName, false);
}

void OptionStore::SetIndexed(const std::string& fullName, bool indexed) {
    const auto changed = std::make_shared<ConfigStoreObject>(IdOf(kIndexKey));
    bool wasIndexed = false;
    if (const auto index = _store->GetObject(IdOf(kIndexKey))) {
        for (const auto& [name, unused] : index->Values()) {
            if (name == fullName) {
                wasIndexed = true;
            } else {
                changed->SetValue(name.c_str(), "");
            }
        }
    }
    if (wasIndexed == indexed) return;
    if (indexed) changed->SetValue(fullName.c_str(), "");
    std::uint32_t word = 0;
    _store->SetObject(changed, word);
}

}  // namespace HostMgmt::Adv
