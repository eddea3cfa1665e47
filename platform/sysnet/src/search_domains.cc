#include "search_domains.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "names.h"
#include "text_file.h"

namespace SysNet::Network {
namespace {

constexpr char kBlanks[] = " \t\r";

using Words = std::vector<std::string>;

// The words of a line from `at` on, up to the first that starts a comment, and where the last of them ends.
struct Tail {
    Words words;
    std::size_t end;
};

Tail ParseTail(const std::string& line, std::size_t at) {
    Tail tail = {{}, at};
    for (at = line.find_first_not_of(kBlanks, at); at != std::string::npos;
         at = line.find_first_not_of(kBlanks, tail.end)) {
        if (line[at] == '#' || line[at] == ';') break;
        tail.end = std::min(line.find_first_of(kBlanks, at), line.size());
        tail.words.push_back(line.substr(at, tail.end - at));
    }
    return tail;
}

// The domains that `present` lacks, each once.
Words Missing(const Words& present, const Words& domains) {
    Words all = present;
    Words missing;
    for (const std::string& domain : domains) {
        const auto same = [&](const std::string& other) { return SameDomain(other, domain); };
        if (std::any_of(all.begin(), all.end(), same)) continue;
        all.push_back(domain);
        missing.push_back(domain);
    }
    return missing;
}

std::string Joined(const std::string& start, const Words& words) {
    std::string text = start;
    for (const std::string& word : words) text += " " + word;
    return text;
}

// Adds words behind the ones of a line, before what follows them.
void InsertWords(Line& line, std::size_t at, const Words& words) { line.text.insert(at, Joined("", words)); }

// Puts a line behind the line `at`, which gets a line end if it has none.
void InsertLineBehind(std::vector<Line>& lines, std::size_t at, std::string text) {
    const std::string end = lines[at].end;
    if (end.empty()) lines[at].end = LineEndOf(lines);
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at) + 1, {std::move(text), end});
}

constexpr std::string_view kSearch = "search";
constexpr std::string_view kDomain = "domain";

// A keyword counts only at the very start of a line, with a blank behind it.
bool HasKeyword(const std::string& line, std::string_view keyword) {
    return line.compare(0, keyword.size(), keyword) == 0 && line.size() > keyword.size() &&
           (line[keyword.size()] == ' ' || line[keyword.size()] == '\t');
}

// The line of a resolv.conf that the resolver goes by.
struct SearchLine {
    std::size_t index;
    bool isSearch;
    Tail tail;

    // Of a "domain" line the resolver takes the first word.
    Words Domains() const { return isSearch ? tail.words : Words{tail.words.front()}; }
};

std::optional<SearchLine> FindSearchLine(const std::vector<Line>& lines) {
    for (std::size_t i = lines.size(); i-- > 0;) {
        const bool isSearch = HasKeyword(lines[i].text, kSearch);
        if (!isSearch && !HasKeyword(lines[i].text, kDomain)) continue;
        Tail tail = ParseTail(lines[i].text, kSearch.size());
        // The resolver passes over a keyword without a domain.
        if (!tail.words.empty()) return SearchLine{i, isSearch, std::move(tail)};
    }
    return std::nullopt;
}

std::string WithoutBlanks(const std::string& text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

// A setting of a drop-in: "Domains = a.test b.test". `valueAt` is the offset of what follows the "=".
bool IsDomainsSetting(const std::string& line, std::size_t& valueAt) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos || WithoutBlanks(line.substr(0, equals)) != "Domains") return false;
    valueAt = equals + 1;
    return true;
}

// What a drop-in says about domains: all that it sets, where its last setting is, and where the section's last line is.
struct DropIn {
    Words domains;
    std::optional<std::size_t> lastSetting;
    std::optional<std::size_t> sectionLastLine;
};

DropIn ParseDropIn(const std::vector<Line>& lines) {
    DropIn dropIn;
    bool inside = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string text = WithoutBlanks(lines[i].text);
        std::size_t valueAt = 0;
        if (!text.empty() && text.front() == '[') inside = text == "[Resolve]";
        if (!inside || text.empty()) continue;
        dropIn.sectionLastLine = i;
        if (!IsDomainsSetting(lines[i].text, valueAt)) continue;
        const Words words = ParseTail(lines[i].text, valueAt).words;
        // An empty setting takes back all earlier ones.
        if (words.empty()) dropIn.domains.clear();
        dropIn.domains.insert(dropIn.domains.end(), words.begin(), words.end());
        dropIn.lastSetting = i;
    }
    return dropIn;
}

}  // namespace

std::string AddToResolvConf(std::string_view text, const Words& domains) {
    std::vector<Line> lines = SplitLines(text);
    const std::optional<SearchLine> current = FindSearchLine(lines);
    const Words present = current ? current->Domains() : Words();
    const Words missing = Missing(present, domains);
    if (missing.empty()) return std::string(text);

    if (!current) {
        AppendLine(lines, Joined("search", missing));
    } else if (current->isSearch) {
        InsertWords(lines[current->index], current->tail.end, missing);
    } else {
        InsertLineBehind(lines, current->index, Joined(Joined("search", present), missing));
    }
    return JoinLines(lines);
}

std::string AddToResolvedDropIn(std::string_view text, const Words& domains) {
    std::vector<Line> lines = SplitLines(text);
    const DropIn dropIn = ParseDropIn(lines);
    const Words missing = Missing(dropIn.domains, domains);
    if (missing.empty()) return std::string(text);

    std::string setting = "Domains=";
    setting.append(Joined("", missing), 1);
    if (dropIn.lastSetting) {
        Line& line = lines[*dropIn.lastSetting];
        InsertWords(line, ParseTail(line.text, line.text.find('=') + 1).end, missing);
    } else if (dropIn.sectionLastLine) {
        InsertLineBehind(lines, *dropIn.sectionLastLine, setting);
    } else {
        AppendLine(lines, "[Resolve]");
        AppendLine(lines, setting);
    }
    return JoinLines(lines);
}

}  // namespace SysNet::Network
