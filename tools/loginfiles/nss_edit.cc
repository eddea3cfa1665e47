#include <algorithm>
#include <sstream>

#include "tools/loginfiles/augeas_text.h"
#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/unified_diff.h"

namespace nimbrel::logins {
namespace {

constexpr char kLens[] = "Nsswitch.lns";

std::string Database(const std::string& name) { return "database[. = '" + name + "']"; }

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
    const std::vector<std::string> members = tree.Match(database + "/*[label() != '#comment']");
    if (members.empty()) {
        tree.Set(database + "/service", provider.nssService);
    } else {
        tree.InsertBehind(members.back(), "service");
        tree.Set(database + "/service[last()]", provider.nssService);
    }
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

// Each line is as before, but for words of the service.
void ProveNoOtherLineChanged(const std::string& before, const std::string& after, const std::string& service) {
    const std::vector<std::string> a = TextLines(before);
    const std::vector<std::string> b = TextLines(after);
    bool good = b.size() >= a.size();
    for (std::size_t index = 0; good && index < b.size(); ++index) {
        const std::string old = index < a.size() ? a[index] : "";
        good = old == b[index] || (old + b[index]).find(service) != std::string::npos;
    }
    if (good) return;
    throw LoginsError(LoginsError::Kind::Refused, "nsswitch.conf cannot be edited without changing other lines",
                      "look at unusual lines of the file; 'nimauthctl logins show' names them");
}

}  // namespace

std::string WithNssService(const std::string& text, const ProviderModules& provider) {
    AugeasText tree(kLens, text);
    bool changed = false;
    for (const char* const name : {"passwd", "group", "initgroups"}) {
        std::vector<std::string> databases = tree.Match(Database(name));
        if (databases.empty() && name != std::string("initgroups")) {
            tree.Set("database[last() + 1]", name);
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
    const std::string service = "database/service[. = '" + provider.nssService + "']";
    bool changed = false;
    for (auto found = tree.Match(service); !found.empty(); found = tree.Match(service)) {
        const std::string criteria = found.front() + "/following-sibling::*[1][label() = 'reaction']";
        if (!tree.Match(criteria).empty()) tree.Remove(criteria);
        tree.Remove(found.front());
        changed = true;
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
