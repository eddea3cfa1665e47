#include "plugins/ad/domain/entries.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <ctime>
#include <stdexcept>

#include "plugins/ad/domain/ber.h"

namespace nimbrel::ad::test {
namespace {

constexpr int kNoSuchObject = 32;
constexpr int kConstraintViolation = 19;
constexpr int kNotAllowedOnNonLeaf = 66;
constexpr int kAlreadyExists = 68;

constexpr char kComputersStart[] = "<wkguid=aa312825768811d1aded00c04fd8d5cd,";
constexpr char kBitAndRule[] = "1.2.840.113556.1.4.803";

std::string ParentOf(const std::string& name) {
    const auto comma = name.find(',');
    return comma == std::string::npos ? "" : name.substr(comma + 1);
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool IsBelow(const std::string& name, const std::string& base) { return EndsWith(name, "," + base); }

bool IsInScope(const std::string& name, const std::string& base, int scope) {
    if (scope == 0) return name == base;
    return scope == 1 ? ParentOf(name) == base : name == base || IsBelow(name, base);
}

const Values* ValuesOf(const Entry& entry, std::string_view attribute) {
    const auto found = entry.attributes.find(LowerText(std::string(attribute)));
    return found == entry.attributes.end() ? nullptr : &found->second;
}

bool HasValue(const Entry& entry, const Element& attribute, const Element& value) {
    const Values* values = ValuesOf(entry, attribute.content);
    const std::string wanted = LowerText(value.Text());
    return values != nullptr &&
           std::any_of(values->begin(), values->end(), [&](const auto& one) { return LowerText(one) == wanted; });
}

bool HasBits(const Entry& entry, std::string_view content) {
    const Element rule = TakeElement(content);
    const Element attribute = TakeElement(content);
    const long long bits = std::stoll(TakeElement(content).Text());
    if (rule.content != kBitAndRule) throw std::runtime_error("a rule that is not known");
    const Values* values = ValuesOf(entry, attribute.content);
    return values != nullptr && (std::stoll(values->front()) & bits) == bits;
}

bool Matches(const Entry& entry, const Element& filter) {
    std::string_view content = filter.content;
    switch (filter.tag) {
        case 0xa0:
            while (!content.empty()) {
                if (!Matches(entry, TakeElement(content))) return false;
            }
            return true;
        case 0xa1:
            while (!content.empty()) {
                if (Matches(entry, TakeElement(content))) return true;
            }
            return false;
        case 0xa3: {
            const Element attribute = TakeElement(content);
            return HasValue(entry, attribute, TakeElement(content));
        }
        case 0x87:
            return ValuesOf(entry, content) != nullptr;
        case 0xa9:
            return HasBits(entry, content);
        default:
            throw std::runtime_error("a filter that is not known");
    }
}

// The text between the quotes, of a value in UTF-16.
std::string PasswordOf(const std::string& value) {
    std::string text;
    for (std::size_t at = 2; at + 3 < value.size(); at += 2) {
        const unsigned unit = static_cast<unsigned char>(value[at]) | static_cast<unsigned char>(value[at + 1]) << 8U;
        if (unit >= 0x80) throw std::runtime_error("the tests' passwords are ASCII");
        text += static_cast<char>(unit);
    }
    return text;
}

// The binary form of "S-1-5-21-1-2-3-N".
std::string AccountSid(unsigned char number) {
    std::string sid("\x01\x05\0\0\0\0\0\x05\x15\0\0\0\x01\0\0\0\x02\0\0\0\x03\0\0\0", 24);
    return sid + static_cast<char>(number) + std::string(3, '\0');
}

// The secret's version and time, which nobody but the domain itself writes.
void CountKeyVersion(Entry& entry) {
    constexpr std::int64_t kFrom1601To1970 = 11'644'473'600;
    const std::string before = entry.Text("msds-keyversionnumber");
    entry.attributes["msds-keyversionnumber"] = {std::to_string(before.empty() ? 1 : std::stoi(before) + 1)};
    entry.attributes["pwdlastset"] = {std::to_string((std::time(nullptr) + kFrom1601To1970) * 10'000'000)};
}

std::string TimeText(std::time_t time) {
    std::tm parts = {};
    gmtime_r(&time, &parts);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y%m%d%H%M%S.0Z", &parts);
    return text;
}

}  // namespace

std::string LowerText(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string Entry::Text(const std::string& attribute) const {
    const auto found = attributes.find(attribute);
    return found == attributes.end() || found->second.empty() ? "" : found->second.front();
}

void Entries::Put(const std::string& name, const std::map<std::string, Values>& attributes) {
    const std::lock_guard guard(_lock);
    Entry& entry = _entries[LowerText(name)];
    entry.name = name;
    for (const auto& [attribute, values] : attributes) entry.attributes[LowerText(attribute)] = values;
}

void Entries::Move(const std::string& name, const std::string& to) {
    const std::lock_guard guard(_lock);
    auto node = _entries.extract(LowerText(name));
    node.key() = LowerText(to);
    node.mapped().name = to;
    _entries.insert(std::move(node));
    _secrets[LowerText(to)] = _secrets[LowerText(name)];
}

std::optional<Entry> Entries::Find(const std::string& name) {
    const std::lock_guard guard(_lock);
    const auto found = _entries.find(LowerText(name));
    return found == _entries.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> Entries::Names() {
    const std::lock_guard guard(_lock);
    std::vector<std::string> names;
    for (const auto& [name, entry] : _entries) names.push_back(entry.name);
    return names;
}

std::optional<Entry> Entries::Account(const std::string& samAccountName) {
    const std::lock_guard guard(_lock);
    for (const auto& [name, entry] : _entries) {
        if (LowerText(entry.Text("samaccountname")) == LowerText(samAccountName)) return entry;
    }
    return std::nullopt;
}

Result Entries::Add(const std::string& name, const std::map<std::string, Values>& attributes) {
    if (Find(name)) return {kAlreadyExists, "00000524: UpdErr: DSID-031A11E2, problem 6005 (ENTRY_EXISTS), data 0"};
    if (!Find(ParentOf(name))) return {kNoSuchObject, "00000525: NameErr: problem 2001 (NO_OBJECT)"};
    auto plain = attributes;
    plain.erase("unicodepwd");
    plain["whenCreated"] = {TimeText(std::time(nullptr))};
    {
        const std::lock_guard guard(_lock);
        plain.emplace("objectsid", Values{AccountSid(++_added)});
    }
    Put(name, plain);
    const auto secret = attributes.find("unicodepwd");
    return secret == attributes.end() ? Result() : Modify(name, {{2, "unicodepwd", secret->second}});
}

Result Entries::Modify(const std::string& name, const std::vector<Change>& changes) {
    std::optional<std::string> password;
    Entry account;
    {
        const std::lock_guard guard(_lock);
        const auto found = _entries.find(LowerText(name));
        if (found == _entries.end()) return {kNoSuchObject, "00000525: NameErr: problem 2001 (NO_OBJECT)"};
        Entry& entry = found->second;
        for (const auto& change : changes) {
            const std::string attribute = LowerText(change.attribute);
            if (attribute != "unicodepwd") {
                if (change.values.empty()) {
                    entry.attributes.erase(attribute);
                } else {
                    entry.attributes[attribute] = change.values;
                }
            } else if (change.kind == 1 && PasswordOf(change.values.at(0)) != _secrets[found->first]) {
                return {kConstraintViolation, "00000056: AtrErr: DSID-03190F80, #1"};
            } else if (change.kind != 1) {
                password = PasswordOf(change.values.at(0));
                _secrets[found->first] = *password;
                CountKeyVersion(entry);
            }
        }
        account = entry;
    }
    if (password && onSecret) onSecret(account, password);
    return {};
}

Result Entries::Delete(const std::string& name, bool withChildren) {
    std::vector<Entry> gone;
    {
        const std::lock_guard guard(_lock);
        const std::string wanted = LowerText(name);
        if (_entries.count(wanted) == 0) return {kNoSuchObject, "0000208D: NameErr: problem 2001 (NO_OBJECT)"};
        const auto isBelow = [&](const auto& one) { return IsBelow(one.first, wanted); };
        if (!withChildren && std::any_of(_entries.begin(), _entries.end(), isBelow)) {
            return {kNotAllowedOnNonLeaf, "00002015: UpdErr: problem 6003 (CANT_ON_NON_LEAF)"};
        }
        for (auto one = _entries.begin(); one != _entries.end();) {
            const bool goes = one->first == wanted || isBelow(*one);
            if (goes) gone.push_back(one->second);
            one = goes ? _entries.erase(one) : std::next(one);
        }
    }
    for (const auto& entry : gone) {
        if (onSecret) onSecret(entry, std::nullopt);
    }
    return {};
}

Result Entries::Search(const std::string& base, int scope, std::string_view filter, std::vector<Entry>& found) {
    std::string wanted = LowerText(base);
    if (wanted.rfind(kComputersStart, 0) == 0) {
        wanted = "cn=computers," + wanted.substr(sizeof kComputersStart - 1, wanted.size() - sizeof kComputersStart);
    }
    const Element encoded = TakeElement(filter);
    const std::lock_guard guard(_lock);
    if (_entries.count(wanted) == 0) return {kNoSuchObject, "0000208D: NameErr: problem 2001 (NO_OBJECT)"};
    for (const auto& [name, entry] : _entries) {
        if (IsInScope(name, wanted, scope) && Matches(entry, encoded)) found.push_back(entry);
    }
    return {};
}

}  // namespace nimbrel::ad::test
