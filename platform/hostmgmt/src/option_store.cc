#include "option_store.h"

#include <algorithm>
#include <cstdint>
#include <map>

namespace HostMgmt::Adv {
namespace {

using OrbConfigStore::ConfigStoreObject;
using OrbConfigStore::ConfigStoreObjectId;

constexpr char kRemovedType[] = "removed";
constexpr char kIndexKey[] = "index";

// The options that every host has.
const std::map<std::string, OptionRecord>& HostOptions() {
    static const std::map<std::string, OptionRecord> options = {
        {"UserVars.ActiveDirectoryVerifyAPXCertificate",
         {kIntegerType, "1", "Verify the certificate of the authentication proxy: 1 for yes, 0 for no."}}};
    return options;
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

// One declaration or removal at a time in this process: each reads the index, changes it and writes it back.
std::mutex indexChange;

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
    const auto found = HostOptions().find(fullName);
    if (found == HostOptions().end()) return std::nullopt;
    return found->second;
}

void OptionStore::Write(const std::string& fullName, const OptionRecord& record) {
    const auto object = std::make_shared<ConfigStoreObject>(IdOf(fullName));
    object->SetValue("type", record.type);
    object->SetValue("value", record.value);
    object->SetValue("description", record.description);
    std::uint32_t word = 0;
    _store->SetObject(object, word);
}

// The index names an option before it exists and after it is gone, so that a failure in between leaves an entry too many
// and never an option that cannot be listed.
void OptionStore::Declare(const std::string& fullName, const OptionRecord& record) {
    RequireFullName(fullName);
    const std::lock_guard<std::mutex> hold(indexChange);
    SetIndexed(fullName, true);
    Write(fullName, record);
}

void OptionStore::Remove(const std::string& fullName) {
    RequireFullName(fullName);
    const std::lock_guard<std::mutex> hold(indexChange);
    if (!HostOptions().contains(fullName)) return Forget(fullName);
    Write(fullName, {kRemovedType, "", ""});
}

void OptionStore::Restore(const std::string& fullName) {
    RequireFullName(fullName);
    const std::lock_guard<std::mutex> hold(indexChange);
    Forget(fullName);
}

std::set<std::string> OptionStore::FullNames() const {
    std::set<std::string> candidates;
    for (const auto& [fullName, record] : HostOptions()) candidates.insert(fullName);
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
