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

// The words of a line from `at` on, and where the last of them ends.
struct Tail {
    Words words;
    std::size_t end;
};

enum class Comments { EndTheWords, StandAlone };

Tail ParseTail(const std::string& line, std::size_t at, Comments comments) {
    Tail tail = {{}, at};
    for (at = line.find_first_not_of(kBlanks, at); at != std::string::npos;
         at = line.find_first_not_of(kBlanks, tail.end)) {
        if (comments == Comments::EndTheWords && (line[at] == '#' || line[at] == ';')) break;
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
        Tail tail = ParseTail(lines[i].text, kSearch.size(), Comments::EndTheWords);
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

// A line that ends with a backslash goes on in the next one that is no comment.
bool GoesOn(const std::string& line) {
    const std::size_t last = line.find_last_not_of('\\');
    return (line.size() - (last == std::string::npos ? 0 : last + 1)) % 2 != 0;
}

bool IsComment(const std::string& line) {
    const std::string text = WithoutBlanks(line);
    return !text.empty() && (text.front() == '#' || text.front() == ';');
}

// The last of the lines over which the one at `first` goes on.
std::size_t LastOfSetting(const std::vector<Line>& lines, std::size_t first) {
    std::size_t last = first;
    for (std::size_t i = first; GoesOn(lines[last].text) && ++i < lines.size();) {
        if (!IsComment(lines[i].text)) last = i;
    }
    return last;
}

// Whether a line at the end of the file would go on in one that is added there.
bool EndGoesOn(const std::vector<Line>& lines) {
    const auto last =
        std::find_if(lines.rbegin(), lines.rend(), [](const Line& line) { return !IsComment(line.text); });
    return last != lines.rend() && GoesOn(last->text);
}

std::string WithoutContinuation(const std::string& line) {
    return GoesOn(line) ? line.substr(0, line.size() - 1) : line;
}

// The lines together as the one that they are.
std::string TogetherWithoutBlanks(const std::vector<Line>& lines, std::size_t first, std::size_t last) {
    std::string text;
    for (std::size_t i = first; i <= last; ++i) {
        if (!IsComment(lines[i].text)) text += WithoutContinuation(lines[i].text) + ' ';
    }
    return WithoutBlanks(text);
}

// The words of a line of a drop-in, where comments have lines of their own.
Tail ParseValues(const std::string& line, std::size_t at) {
    return ParseTail(WithoutContinuation(line), at, Comments::StandAlone);
}

struct Place {
    std::size_t line;
    std::size_t at;
};

// What follows the "=" of "Domains = a.test b.test"; the name, too, may go on in another line.
std::optional<Place> ValueOfDomains(const std::vector<Line>& lines, std::size_t first, std::size_t last) {
    std::string name;
    for (std::size_t i = first; i <= last; ++i) {
        if (IsComment(lines[i].text)) continue;
        const std::string text = WithoutContinuation(lines[i].text);
        const std::size_t equals = text.find('=');
        name += text.substr(0, equals) + ' ';
        if (equals == std::string::npos) continue;
        return WithoutBlanks(name) == "Domains" ? std::optional(Place{i, equals + 1}) : std::nullopt;
    }
    return std::nullopt;
}

Words DomainsOf(const std::vector<Line>& lines, const Place& value, std::size_t last) {
    Words words = ParseValues(lines[value.line].text, value.at).words;
    for (std::size_t i = value.line + 1; i <= last; ++i) {
        if (IsComment(lines[i].text)) continue;
        const Words more = ParseValues(lines[i].text, 0).words;
        words.insert(words.end(), more.begin(), more.end());
    }
    return words;
}

// What a drop-in says about domains: all that it sets, where more can be added to the last setting, and the line behind
// which a new setting goes.
struct DropIn {
    Words domains;
    std::optional<Place> lastSetting;
    std::optional<std::size_t> lastLine;
};

void TakeSetting(const std::vector<Line>& lines, std::size_t first, std::size_t last, DropIn& dropIn) {
    const std::optional<Place> value = ValueOfDomains(lines, first, last);
    if (!value) return;
    const Words words = DomainsOf(lines, *value, last);
    dropIn.domains.insert(dropIn.domains.end(), words.begin(), words.end());
    dropIn.lastSetting = {last, ParseValues(lines[last].text, last == value->line ? value->at : 0).end};
    if (!words.empty()) return;
    // An empty setting takes back all earlier ones, and has to stay empty for that.
    dropIn.domains.clear();
    dropIn.lastSetting.reset();
}

DropIn ParseDropIn(const std::vector<Line>& lines) {
    DropIn dropIn;
    bool inside = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string text = WithoutBlanks(lines[i].text);
        // A backslash alone begins nothing: what follows stands as if on a line of its own.
        if (text.empty() || text == "\\") continue;
        const std::size_t first = i;
        if (!IsComment(text)) i = LastOfSetting(lines, i);
        if (text.front() == '[') inside = TogetherWithoutBlanks(lines, first, i) == "[Resolve]";
        if (!inside) continue;
        dropIn.lastLine = i;
        TakeSetting(lines, first, i, dropIn);
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
        InsertWords(lines[dropIn.lastSetting->line], dropIn.lastSetting->at, missing);
    } else if (dropIn.lastLine) {
        const bool goesOn = *dropIn.lastLine + 1 == lines.size() && EndGoesOn(lines);
        InsertLineBehind(lines, *dropIn.lastLine, setting);
        if (goesOn) InsertLineBehind(lines, *dropIn.lastLine, "");
    } else {
        if (EndGoesOn(lines)) AppendLine(lines, "");
        AppendLine(lines, "[Resolve]");
        AppendLine(lines, setting);
    }
    return JoinLines(lines);
}

}  // namespace SysNet::Network
