#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>

#include "tools/loginfiles/augeas_text.h"
#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/unified_diff.h"

namespace nimbrel::logins {
namespace {

constexpr char kLens[] = "Nsswitch.lns";
// Those that say who is who. All others are the administrator's.
constexpr std::array<std::string_view, 3> kDatabases = {"passwd", "group", "initgroups"};

std::string Database(std::string_view name) { return "database[. = '" + std::string(name) + "']"; }

// "NOTFOUND=return" as nodes of a reaction.
void AddCriteria(AugeasText& tree, const std::string& reaction, const std::vector<std::string>& criteria) {
    for (const std::string& word : criteria) {
        const std::size_t sign = word.find('=');
        const bool negated = word.starts_with('!');
        if (sign == std::string::npos) {
            throw LoginsError(LoginsError::Kind::Refused,
                              "the provider's name-service parameter '" + word + "' is no criterion");
        }
        const std::string status = reaction + "/status[last()]";
        tree.Set(reaction + "/status[last() + 1]", word.substr(negated ? 1 : 0, sign - (negated ? 1 : 0)));
        if (negated) tree.Set(status + "/negate", "");
        tree.Set(status + "/action", word.substr(sign + 1));
    }
}

void AddService(AugeasText& tree, const std::string& database, const ProviderModules& provider) {
    // A line has a member: libaugeas reads none without.
    tree.InsertBehind(database + "/*[label() != '#comment'][last()]", "service");
    tree.Set(database + "/service[last()]", provider.nssService);
    if (provider.nssParameters.empty()) return;
    tree.InsertBehind(database + "/service[last()]", "reaction");
    AddCriteria(tree, database + "/reaction[last()]", provider.nssParameters);
}

bool Has(const AugeasText& tree, const std::string& database, const std::string& service) {
    return !tree.Match(database + "/service[. = '" + service + "']").empty();
}

std::vector<std::string> TextLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    stream.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// A line's words without the service and the criteria behind it.
std::vector<std::string> WordsWithout(const std::string& line, const std::string& service) {
    std::istringstream stream(line);
    stream.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    std::vector<std::string> words;
    bool behind = false;
    bool inCriteria = false;
    for (std::string word; stream >> word;) {
        inCriteria = inCriteria || (behind && word.starts_with('['));
        behind = !inCriteria && word == service;
        if (!inCriteria && !behind) words.push_back(word);
        inCriteria = inCriteria && !word.ends_with(']');
    }
    return words;
}

// A word may stand close to the colon: "passwd:files".
std::string WithRoomBehindColon(std::string line) {
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos) line.insert(colon + 1, 1, ' ');
    return line;
}

bool IsOfOurDatabases(const std::string& line) {
    return std::any_of(kDatabases.begin(), kDatabases.end(), [&](std::string_view name) {
        const std::size_t begin = std::min(line.find_first_not_of(" \t"), line.size());
        const std::size_t end = std::min(line.find_first_of(" \t:", begin), line.size());
        return line.substr(begin, end - begin) == name;
    });
}

// Each line is as before, but for the service in a line of a database that is ours; and so is the end of the file.
void ProveNoOtherLineChanged(const std::string& before, const std::string& after, const std::string& service) {
    const std::vector<std::string> a = TextLines(before);
    const std::vector<std::string> b = TextLines(after);
    bool good = b.size() >= a.size() && (before.empty() || before.ends_with('\n') == after.ends_with('\n'));
    for (std::size_t index = 0; good && index < b.size(); ++index) {
        const bool isNew = index >= a.size();
        if (!isNew && a[index] == b[index]) continue;
        const std::string old = isNew ? b[index].substr(0, b[index].find(':')) + ": files" : a[index];
        good = IsOfOurDatabases(old) &&
               WordsWithout(WithRoomBehindColon(old), service) == WordsWithout(WithRoomBehindColon(b[index]), service);
    }
    if (good) return;
    throw LoginsError(LoginsError::Kind::Refused, "nsswitch.conf cannot be edited without changing other lines",
                      "look at unusual lines of the file; 'nimauthctl logins show' names them");
}

void RemoveService(AugeasText& tree, const std::string& database, const std::string& service) {
    const std::string places = database + "/service[. = '" + service + "']";
    for (auto found = tree.Match(places); !found.empty(); found = tree.Match(places)) {
        const std::string criteria = found.front() + "/following-sibling::*[1][label() = 'reaction']";
        if (!tree.Match(criteria).empty()) tree.Remove(criteria);
        tree.Remove(found.front());
    }
    if (!tree.Match(database + "/service").empty()) return;
    throw LoginsError(LoginsError::Kind::Refused,
                      "the database '" + tree.Value(database) + "' has no other source than '" + service + "'",
                      "name the source that it shall have then in front of it, as 'files'");
}

}  // namespace

std::string WithNssService(const std::string& text, const ProviderModules& provider) {
    AugeasText tree(kLens, text);
    bool changed = false;
    for (const std::string_view name : kDatabases) {
        std::vector<std::string> databases = tree.Match(Database(name));
        if (databases.empty() && name != "initgroups") {
            tree.Set("database[last() + 1]", std::string(name));
            tree.Set("database[last()]/service", "files");
            databases = tree.Match(Database(name));
        }
        for (const std::string& database : databases) {
            if (Has(tree, database, provider.nssService)) continue;
            AddService(tree, database, provider);
            changed = true;
        }
    }
    if (!changed) return text;
    std::string edited = tree.Text();
    ProveNoOtherLineChanged(text, edited, provider.nssService);
    return edited;
}

std::string WithNssServiceInTemplate(const std::string& text, const ProviderModules& provider) {
    std::string edited;
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(lines, line); edited += line + '\n') {
        if (!line.starts_with("passwd:") && !line.starts_with("group:")) continue;
        std::string words = line + ' ';
        std::replace(words.begin(), words.end(), '\t', ' ');
        if (words.find(' ' + provider.nssService + ' ') != std::string::npos) continue;
        // In front of a condition that concerns the whole line.
        const std::size_t end = std::min(line.find("{exclude"), line.find("{include"));
        std::size_t place = end == std::string::npos ? line.size() : end;
        while (place > 0 && (line[place - 1] == ' ' || line[place - 1] == '\t')) --place;
        line.insert(place, ' ' + provider.nssService);
    }
    return edited;
}

std::string WithoutNssService(const std::string& text, const ProviderModules& provider) {
    AugeasText tree(kLens, text);
    bool changed = false;
    for (const std::string_view name : kDatabases) {
        for (const std::string& database : tree.Match(Database(name))) {
            if (!Has(tree, database, provider.nssService)) continue;
            RemoveService(tree, database, provider.nssService);
            changed = true;
        }
    }
    if (!changed) return text;
    std::string edited = tree.Text();
    ProveNoOtherLineChanged(text, edited, provider.nssService);
    return edited;
}

bool HasNssService(const std::string& text, const std::string& service) {
    const AugeasText tree(kLens, text);
    return !tree.Match("database/service[. = '" + service + "']").empty();
}

}  // namespace nimbrel::logins
