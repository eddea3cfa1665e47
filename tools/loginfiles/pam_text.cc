#include "tools/loginfiles/pam_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "tools/loginfiles/file_state.h"
#include "tools/loginfiles/numbers.h"

namespace nimbrel::logins {
namespace {

// To libpam a carriage return is an ordinary character: "pam_unix.so\r" is a module that nobody has.
constexpr char kBlanks[] = " \t\n";
// What libpam reads at once; the rest of a longer line is a line of its own to it.
constexpr std::size_t kLongestLine = 1023;
constexpr std::size_t kDeepestInclude = 32;
// Files that include each other several times could name one another without end.
constexpr std::size_t kMostIncludes = 1000;

// The next line with its end.
std::string_view TakeLine(std::string_view& rest) {
    const std::size_t size = std::min(rest.find('\n'), rest.size() - 1) + 1;
    const std::string_view line = rest.substr(0, size);
    rest.remove_prefix(size);
    return line;
}

// What one line adds to a rule.
struct Piece {
    bool isNothing = false;  // blank, or a comment as a whole; also in the middle of a rule
    bool continues = false;  // ends with a '\'; one in front of a comment is an ordinary character
    std::string content = {};
};

Piece PieceOf(std::string_view line) {
    const std::size_t begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos || line[begin] == '#') return {.isNothing = true};
    const std::size_t comment = line.find('#', begin);
    Piece piece = {.content = std::string(line.substr(0, comment))};
    if (comment != std::string_view::npos) return piece;
    piece.content.resize(piece.content.find_last_not_of(kBlanks) + 1);
    piece.continues = piece.content.back() == '\\';
    if (piece.continues) piece.content.back() = ' ';
    return piece;
}

// The end of a word in brackets: behind the first ']' without a '\' in front.
std::size_t EndOfBracket(const std::string& content, std::size_t begin) {
    std::size_t end = content.find(']', begin);
    while (end != std::string::npos && content[end - 1] == '\\') end = content.find(']', end + 1);
    return end == std::string::npos ? content.size() : end + 1;
}

// Words; a bracket is one word, whatever is in it.
std::vector<std::string> Words(const std::string& content) {
    std::vector<std::string> words;
    std::size_t begin = content.find_first_not_of(kBlanks);
    while (begin != std::string::npos) {
        const std::size_t end = content[begin] == '[' ? EndOfBracket(content, begin)
                                                      : std::min(content.find_first_of(kBlanks, begin), content.size());
        words.push_back(content.substr(begin, end - begin));
        begin = content.find_first_not_of(kBlanks, end);
    }
    return words;
}

// What libpam makes of a word in brackets; any other stays as it is.
std::string Unbracketed(const std::string& word) {
    if (!word.starts_with('[')) return word;
    std::string inner = word.substr(1, word.size() - (word.size() > 1 && word.ends_with(']') ? 2 : 1));
    for (std::size_t at = inner.find("\\]"); at != std::string::npos; at = inner.find("\\]", at + 1))
        inner.erase(at, 1);
    return inner;
}

std::string LowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool IsType(const std::string& word) {
    constexpr std::array<const char*, 4> kTypes = {"auth", "account", "password", "session"};
    return std::find(kTypes.begin(), kTypes.end(), word) != kTypes.end();
}

void Understand(const std::string& content, PamLine& line) {
    const std::vector<std::string> words = Words(content);
    line.kind = PamLine::Kind::Unreadable;
    if (words.size() < 2) return;
    const std::string first = Unbracketed(words[0]);
    const bool optional = first.starts_with('-');
    const std::string type = LowerCase(first.substr(optional ? 1 : 0));
    if (type == "@include") {
        line.kind = PamLine::Kind::Include;
        line.module = Unbracketed(words[1]);
        return;
    }
    if (!IsType(type) || words.size() < 3 || Unbracketed(words[2]).empty()) return;
    line.kind = PamLine::Kind::Rule;
    line.optional = optional;
    line.type = type;
    // "[Required]" is "required". A list, and what would be no word without its brackets, keeps them.
    const std::string word = LowerCase(Unbracketed(words[1]));
    line.control = word.empty() || word.find_first_of("= \t") != std::string::npos ? words[1] : word;
    line.module = Unbracketed(words[2]);
    line.arguments.assign(words.begin() + 3, words.end());
}

// Takes all lines of one rule, or one line of nothing.
PamLine TakeRule(std::string_view& rest, int& number) {
    PamLine line;
    line.number = number;
    std::string content;
    Piece piece;
    bool tooLong = false;
    do {
        const std::string_view raw = TakeLine(rest);
        piece = PieceOf(raw);
        line.raw += raw;
        ++number;
        tooLong = tooLong || raw.size() > kLongestLine;
        content += piece.content;
        // A line of nothing goes on with what the one before it began.
        piece.continues = piece.continues || (piece.isNothing && !content.empty());
    } while (piece.continues && !rest.empty());
    if (tooLong || piece.continues || content.size() > kLongestLine) {
        line.kind = PamLine::Kind::Unreadable;  // with nothing behind a '\', libpam refuses the whole service
    } else if (!content.empty()) {
        Understand(content, line);
    }
    return line;
}

// False as well for a link that leads nowhere, or round in a circle.
bool IsFile(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

// `root` and a folder in it. A masked service is left out, here and in the folders of vendors.
void ReadFolder(const std::string& root, const std::string& folder, PamFiles& files) {
    std::error_code error;
    for (std::filesystem::directory_iterator item(root + folder, error), end; !error && item != end;
         item.increment(error)) {
        const std::string name = item->path().filename().string();
        if (IsBackup(name) || IsMasked(root + PathOf(name))) continue;
        if (!files.contains(name) && IsFile(item->path())) files[name] = ReadWhole(Resolve(item->path().string()));
    }
}

// Where libpam looks for it.
std::vector<std::string> PlacesOf(const std::string& root, const std::string& name) {
    if (!IsService(name)) return {root + name};
    std::vector<std::string> places = {root + PathOf(name)};
    for (const char* const folder : kVendorFolders) places.push_back(root + folder + '/' + name);
    return places;
}

void ReadIncluded(const std::string& root, const std::string& text, PamFiles& files) {
    std::vector<std::string> texts = {text};
    while (!texts.empty()) {
        const std::vector<PamLine> lines = ParsePam(texts.back());
        texts.pop_back();
        for (const PamLine& line : lines) {
            const std::string name = line.IncludesAnother() ? IncludedName(line.module) : "";
            if (name.empty() || files.contains(name)) continue;
            if (IsService(name) && IsMasked(root + PathOf(name))) {
                files[name];  // without a line
                continue;
            }
            const std::vector<std::string> places = PlacesOf(root, name);
            const auto found = std::find_if(places.begin(), places.end(), IsFile);
            if (found == places.end()) continue;
            texts.push_back(files[name] = ReadWhole(Resolve(*found)));
        }
    }
}

class Expansion {
 public:
    Expansion(const PamFiles& files, std::string_view type, bool withSubstacks)
        : _files(files), _type(type), _withSubstacks(withSubstacks) {}

    void Add(const std::string& file, std::string_view onlyType) {
        _open.push_back(file);
        for (const PamLine& line : ParsePam(_files.at(file))) AddLine(file, line, onlyType);
        _open.pop_back();
    }
    std::vector<EffectiveRule> Take() { return std::move(_rules); }

 private:
    void AddLine(const std::string& file, const PamLine& line, std::string_view onlyType) {
        const bool typed = line.kind == PamLine::Kind::Rule;
        const bool wanted = typed ? (onlyType.empty() || line.type == onlyType) && (_type.empty() || line.type == _type)
                                  : line.kind != PamLine::Kind::Nothing;
        if (!wanted) return;
        const std::string name = line.IncludesAnother() ? IncludedName(line.module) : "";
        const bool followed = !name.empty() && CanBeFollowed(name);
        const bool substack = followed && line.control == "substack";
        if (!followed || (substack && _withSubstacks)) _rules.push_back({line, file, _level});
        if (!followed) return;
        ++_includes;
        if (substack) ++_level;
        Add(name, typed ? std::string_view(line.type) : onlyType);
        if (substack) --_level;
    }

    bool CanBeFollowed(const std::string& file) const {
        const bool circle = std::find(_open.begin(), _open.end(), file) != _open.end();
        return !circle && _files.contains(file) && _open.size() <= kDeepestInclude && _includes < kMostIncludes;
    }

    const PamFiles& _files;
    std::string_view _type;
    bool _withSubstacks;
    int _level = 0;
    std::vector<std::string> _open;  // the files that are being put in place, one inside the other
    std::size_t _includes = 0;
    std::vector<EffectiveRule> _rules;
};

}  // namespace

std::vector<PamLine> ParsePam(const std::string& text) {
    std::vector<PamLine> lines;
    std::string_view rest = text;
    int number = 1;
    while (!rest.empty()) lines.push_back(TakeRule(rest, number));
    return lines;
}

bool IsMasked(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

bool IsBackup(const std::string& name) {
    constexpr std::array<const char*, 10> kEndings = {".bak",   ".orig", ".old",  ".save", ".rpm",
                                                      ".dpkg-", ".ucf-", ".pam-", ".pac",  ".aug"};
    if (name.starts_with('.') || name.ends_with('~')) return true;
    const std::string ending = name.substr(std::min(name.rfind('.'), name.size()));
    return std::any_of(kEndings.begin(), kEndings.end(), [&](const char* begin) { return ending.starts_with(begin); });
}

std::string ModuleName(const PamLine& line) { return line.module.substr(line.module.rfind('/') + 1); }

int LongestJump(const std::string& control) {
    int longest = 0;
    for (std::size_t sign = control.find('='); sign != std::string::npos; sign = control.find('=', sign + 1)) {
        const std::size_t begin = std::min(control.find_first_not_of(" \t", sign + 1), control.size());
        longest = std::max(longest, LeadingNumber<int>(std::string_view(control).substr(begin)));
    }
    return longest;
}

PamFiles ReadPamFiles(const std::string& root) {
    PamFiles files;
    ReadFolder(root, kPamFolder, files);
    for (const char* const folder : kVendorFolders) ReadFolder(root, folder, files);
    const PamFiles services = files;
    for (const auto& [name, text] : services) ReadIncluded(root, text, files);
    return files;
}

std::string IncludedName(const std::string& module) {
    if (IsService(module)) return module;
    const std::filesystem::path path = (std::filesystem::path(kPamFolder) / module).lexically_normal();
    return path.parent_path() == kPamFolder ? path.filename().string() : path.string();
}

namespace {

std::vector<EffectiveRule> Expanded(const PamFiles& files, const std::string& service, Expansion expansion) {
    const std::string file = files.contains(service) ? service : "other";
    if (!files.contains(file)) return {};
    expansion.Add(file, {});
    return expansion.Take();
}

}  // namespace

std::vector<EffectiveRule> EffectiveStack(const PamFiles& files, const std::string& service, std::string_view type) {
    return Expanded(files, service, Expansion(files, type, false));
}

std::vector<EffectiveRule> RuleChain(const PamFiles& files, const std::string& service, std::string_view type) {
    return Expanded(files, service, Expansion(files, type, true));
}

bool Uses(const PamFiles& files, const std::string& service, std::string_view type, const std::string& module) {
    const std::vector<EffectiveRule> rules = EffectiveStack(files, service, type);
    return std::any_of(rules.begin(), rules.end(),
                       [&](const EffectiveRule& rule) { return ModuleName(rule.line) == module; });
}

}  // namespace nimbrel::logins
