#include "hostmgmt/advanced_options.h"

#include <charconv>
#include <set>
#include <system_error>
#include <utility>

#include "option_store.h"

namespace HostMgmt {
namespace Adv {
namespace {

// The full name of `name` below the branch `branch`; nothing if `name` is not one part.
std::optional<std::string> Below(const std::string& branch, const std::string& name) {
    if (name.empty() || name.find('.') != std::string::npos) return std::nullopt;
    return branch.empty() ? name : branch + "." + name;
}

// What follows `branch` in `fullName`; nothing if the name does not lie below the branch.
std::optional<std::string> PathBelow(const std::string& branch, const std::string& fullName) {
    if (branch.empty()) return fullName;
    const std::string prefix = branch + ".";
    if (fullName.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
    return fullName.substr(prefix.size());
}

[[noreturn]] void ThrowOption(const std::string& fullName, const char* problem) {
    throw Lib::HostMgmtException(("The advanced option " + fullName + " " + problem).c_str());
}

std::int64_t ParseInteger(const std::string& fullName, const std::string& text) {
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) ThrowOption(fullName, "has a stored value that is not an integer");
    return value;
}

}  // namespace

AdvancedOption::AdvancedOption(std::shared_ptr<OptionStore> store, std::string fullName)
    : _store(std::move(store)), _fullName(std::move(fullName)) {}

AdvancedOption::~AdvancedOption() = default;

std::string AdvancedOption::GetName() const { return _fullName.substr(_fullName.rfind('.') + 1); }

std::string AdvancedOption::GetDescription() const {
    const auto record = _store->Find(_fullName);
    return record ? record->description : std::string();
}

std::string AdvancedOption::ReadValue(const char* type) const {
    const auto record = _store->Find(_fullName);
    if (!record) ThrowOption(_fullName, "has been removed");
    if (record->type != type) ThrowOption(_fullName, "has another type now");
    return record->value;
}

void AdvancedOption::WriteValue(const char* type, const std::string& value) {
    _store->Rewrite(_fullName, [&](std::optional<OptionRecord> record) {
        if (!record) ThrowOption(_fullName, "has been removed");
        if (record->type != type) ThrowOption(_fullName, "has another type now");
        record->value = value;
        return *record;
    });
}

AdvancedIntegerOption::~AdvancedIntegerOption() = default;

std::int64_t AdvancedIntegerOption::GetValue() const { return ParseInteger(GetFullName(), ReadValue(kIntegerType)); }

void AdvancedIntegerOption::SetValue(std::int64_t value) { WriteValue(kIntegerType, std::to_string(value)); }

AdvancedStringOption::~AdvancedStringOption() = default;

std::string AdvancedStringOption::GetValue() const { return ReadValue(kStringType); }

void AdvancedStringOption::SetValue(const std::string& value) { WriteValue(kStringType, value); }

OptionBranch::OptionBranch(std::shared_ptr<OptionStore> store, std::string fullName)
    : _store(std::move(store)), _fullName(std::move(fullName)) {}

std::shared_ptr<OptionBranch> OptionBranch::GetBranch(const std::string& name) const {
    const auto fullName = Below(_fullName, name);
    if (!fullName) return nullptr;
    for (const std::string& option : _store->FullNames()) {
        if (PathBelow(*fullName, option)) return std::make_shared<OptionBranch>(_store, *fullName);
    }
    return nullptr;
}

std::shared_ptr<AdvancedOption> OptionBranch::GetOption(const std::string& name) const {
    const auto fullName = Below(_fullName, name);
    if (!fullName) return nullptr;
    const auto record = _store->Find(*fullName);
    if (!record) return nullptr;
    if (record->type == kIntegerType) return std::make_shared<AdvancedIntegerOption>(_store, *fullName);
    if (record->type == kStringType) return std::make_shared<AdvancedStringOption>(_store, *fullName);
    ThrowOption(*fullName, "has an unknown type");
}

std::vector<std::string> OptionBranch::GetBranchNames() const {
    std::set<std::string> names;
    for (const std::string& option : _store->FullNames()) {
        const auto path = PathBelow(_fullName, option);
        if (!path) continue;
        const auto dot = path->find('.');
        if (dot != std::string::npos) names.insert(path->substr(0, dot));
    }
    return {names.begin(), names.end()};
}

std::vector<std::string> OptionBranch::GetOptionNames() const {
    std::vector<std::string> names;
    for (const std::string& option : _store->FullNames()) {
        const auto path = PathBelow(_fullName, option);
        if (path && path->find('.') == std::string::npos) names.push_back(*path);
    }
    return names;
}

AdvancedOptions::AdvancedOptions(std::shared_ptr<OptionStore> store) : _store(std::move(store)) {}

std::shared_ptr<OptionBranch> AdvancedOptions::GetRootBranch() const {
    return std::make_shared<OptionBranch>(_store, "");
}

void AdvancedOptions::DeclareInteger(const std::string& fullName, std::int64_t value, const std::string& description) {
    _store->Declare(fullName, {kIntegerType, std::to_string(value), description});
}

void AdvancedOptions::DeclareString(const std::string& fullName, const std::string& value,
                                    const std::string& description) {
    _store->Declare(fullName, {kStringType, value, description});
}

void AdvancedOptions::Remove(const std::string& fullName) { _store->Remove(fullName); }

void AdvancedOptions::Restore(const std::string& fullName) { _store->Restore(fullName); }

}  // namespace Adv

std::shared_ptr<Adv::AdvancedOptions> Host::GetAdvancedOptions() {
    return std::make_shared<Adv::AdvancedOptions>(std::make_shared<Adv::OptionStore>());
}

std::shared_ptr<Host> HostFactory::GetHost() { return std::make_shared<Host>(); }

}  // namespace HostMgmt
