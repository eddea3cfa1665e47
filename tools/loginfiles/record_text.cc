#include "tools/loginfiles/record_text.h"

#include <array>
#include <sstream>

#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/numbers.h"

namespace nimbrel::logins {
namespace {

constexpr char kFormat[] = "nimauth-logins 1";
constexpr char kDamaged[] = "the journal holds a record that is damaged or of another version";

constexpr std::array<const char*, 6> kProgressNames = {"applying",  "applied",  "confirmed",
                                                       "restoring", "restored", "undone"};

std::string Line(const std::string& key, const std::string& value) {
    if (value.empty()) return "";
    if (value.find('\n') != std::string::npos) {
        throw LoginsError(LoginsError::Kind::Refused, "a " + key + " with a line end cannot be recorded");
    }
    return key + ' ' + value + '\n';
}

template <typename Number>
Number NumberIn(const std::string& value) {
    const std::optional<Number> number = WholeNumber<Number>(value);
    if (!number) throw LoginsError(LoginsError::Kind::System, kDamaged);
    return *number;
}

void Take(Record& record, const std::string& key, const std::string& value) {
    if (key == "action") record.action = value;
    if (key == "mechanism") record.mechanism = value;
    if (key == "module") record.pamModule = value;
    if (key == "nss") record.nssService = value;
    if (key == "service") record.services.push_back(value);
    if (key == "started") record.started = NumberIn<std::int64_t>(value);
    if (key == "boot") record.bootId = value;
    if (key == "deadline") record.deadline = NumberIn<std::int64_t>(value);
    if (key == "undoes") record.undoes = NumberIn<int>(value);
    if (key != "path") return;
    if (!value.starts_with('/')) throw LoginsError(LoginsError::Kind::System, kDamaged);
    record.changes.push_back({.path = value, .before = {}, .after = {}});
}

}  // namespace

const char* Name(Progress progress) { return kProgressNames.at(static_cast<std::size_t>(progress)); }

std::string RecordText(const Record& record) {
    std::string text = std::string(kFormat) + '\n' + Line("action", record.action) +
                       Line("mechanism", record.mechanism) + Line("module", record.pamModule) +
                       Line("nss", record.nssService);
    for (const std::string& service : record.services) text += Line("service", service);
    text += Line("started", std::to_string(record.started));
    text += Line("boot", record.bootId);
    text += Line("deadline", std::to_string(record.deadline));
    text += Line("undoes", std::to_string(record.undoes));
    for (const Change& change : record.changes) text += Line("path", change.path);
    return text;
}

Record ParseRecord(const std::string& text) {
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::string line;
    if (!std::getline(lines, line) || line != kFormat) {
        throw LoginsError(LoginsError::Kind::System, kDamaged);
    }
    Record record;
    while (std::getline(lines, line)) {
        const std::size_t blank = line.find(' ');
        // A key without a value says nothing, and is not written either.
        if (blank == std::string::npos || blank + 1 == line.size()) continue;
        Take(record, line.substr(0, blank), line.substr(blank + 1));
    }
    return record;
}

std::string StateText(Progress progress, const std::string& reason) {
    return std::string(Name(progress)) + '\n' + reason + (reason.empty() ? "" : "\n");
}

void ParseState(const std::string& text, Entry& entry) {
    const std::size_t end = text.find('\n');
    for (std::size_t value = 0; value < kProgressNames.size(); ++value) {
        if (text.substr(0, end) != kProgressNames[value]) continue;
        entry.progress = static_cast<Progress>(value);
        entry.reason = end == std::string::npos ? "" : text.substr(end + 1);
        while (entry.reason.ends_with('\n')) entry.reason.pop_back();
        return;
    }
    throw LoginsError(LoginsError::Kind::System, "the journal holds a state that is damaged");
}

}  // namespace nimbrel::logins
