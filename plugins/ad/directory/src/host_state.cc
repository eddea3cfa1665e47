#include "host_state.h"

#include <map>

#include "addirectory/ad_error.h"
#include "files.h"
#include "names.h"
#include "pluginkit/folders.h"

namespace nimbrel::ad {
namespace {

constexpr char kFormat[] = "1";
constexpr char kAccountSid[] = "account_sid";
constexpr char kPreferred[] = "preferred_controller";

[[noreturn]] void FailDamaged() { throw AdError(kStatusInternalError, "This host's membership file is damaged"); }

struct Line {
    std::string_view key;
    std::string_view value;
};

// What is read has passed the same test as what is written, or a leave could not write the file again.
bool CanBeKept(std::string_view value) { return !value.empty() && !HasControlCharacters(value); }

// `key = "value"`, nothing else.
Line ParseLine(std::string_view line) {
    static constexpr std::string_view kMiddle = " = \"";
    const auto middle = line.find(kMiddle);
    if (middle == std::string_view::npos || line.back() != '"' || line.size() < middle + kMiddle.size() + 1) {
        FailDamaged();
    }
    const auto rest = line.substr(middle + kMiddle.size());
    const auto value = rest.substr(0, rest.size() - 1);
    if (!CanBeKept(value)) {
        FailDamaged();
    }
    return {line.substr(0, middle), value};
}

void PutLine(std::string& text, std::string_view key, const std::string& value) {
    if (!CanBeKept(value)) {
        throw AdError(kStatusInternalError, "The domain has told a name that cannot be kept");
    }
    text.append(key).append(" = \"").append(value).append("\"\n");
}

struct Field {
    const char* key;
    std::string Membership::*value;
};
constexpr Field kFields[] = {
    {"domain", &Membership::domain},
    {"netbios_name", &Membership::netbiosName},
    {"sid", &Membership::sid},
    {"computer", &Membership::computer},
    {"distinguished_name", &Membership::distinguishedName},
};

std::optional<Membership> TakeMembership(std::map<std::string, std::string, std::less<>>& values) {
    Membership membership;
    std::size_t found = 0;
    for (const Field& field : kFields) {
        const auto value = values.find(field.key);
        if (value != values.end()) {
            membership.*field.value = value->second;
            values.erase(value);
            ++found;
        }
    }
    if (found != 0 && found != std::size(kFields)) {
        FailDamaged();
    }
    const auto sid = values.find(kAccountSid);
    if (found != 0 && sid != values.end()) {
        membership.accountSid = sid->second;
        values.erase(sid);
    }
    return found == 0 ? std::nullopt : std::optional(membership);
}

}  // namespace

HostState HostState::Load(const std::string& path) {
    const auto text = ReadTrustedFile(path);
    return text ? Parse(text->View()) : HostState();
}

HostState HostState::Parse(std::string_view text) {
    HostState state;
    std::map<std::string, std::string, std::less<>> values;
    while (!text.empty()) {
        const auto end = text.find('\n');
        if (end == std::string_view::npos) {
            FailDamaged();
        }
        const Line line = ParseLine(text.substr(0, end));
        text.remove_prefix(end + 1);
        if (line.key == kPreferred) {
            state.preferredControllers.emplace_back(line.value);
        } else if (!values.emplace(line.key, line.value).second) {
            FailDamaged();
        }
    }
    const auto format = values.find("format");
    if (format == values.end() || format->second != kFormat) {
        FailDamaged();
    }
    values.erase(format);
    state.membership = TakeMembership(values);
    if (!values.empty()) {
        FailDamaged();
    }
    return state;
}

std::string HostState::Format() const {
    std::string text;
    PutLine(text, "format", kFormat);
    for (const Field& field : kFields) {
        if (membership) {
            PutLine(text, field.key, (*membership).*field.value);
        }
    }
    if (membership && !membership->accountSid.empty()) {
        PutLine(text, kAccountSid, membership->accountSid);
    }
    for (const auto& controller : preferredControllers) {
        PutLine(text, kPreferred, controller);
    }
    return text;
}

void HostState::Save(const std::string& path) const {
    if (!membership && preferredControllers.empty()) {
        RemoveFile(path);
        return;
    }
    const std::string text = Format();
    kit::MakeFolders(kit::FolderOf(path), kFolderMode);
    FileReplacement replacement(path);
    replacement.Write(text);
    replacement.Commit();
}

}  // namespace nimbrel::ad
