#include <algorithm>
#include <array>
#include <map>

#include "tools/loginfiles/augeas_text.h"
#include "tools/loginfiles/edits.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/pam_jumps.h"

namespace nimbrel::logins {
namespace {

constexpr char kLens[] = "Pam.lns";
constexpr char kPassword[] = "pam_unix.so";

// The rule of each type; the guard in front of it keeps local accounts away.
struct Shape {
    const char* type;
    const char* control;
    bool guarded;
};
constexpr std::array<Shape, 4> kShapes = {{
    {"auth", "sufficient", true},
    {"account", kAccountControl, true},
    {"password", "sufficient", true},
    {"session", "optional", false},
}};

// Rules and includes of one text, in step with the nodes that libaugeas has for them.
class PamTree {
 public:
    explicit PamTree(const std::string& text) : _tree(kLens, text) {
        for (PamLine& line : ParsePam(text)) {
            if (line.kind != PamLine::Kind::Nothing) _lines.push_back(std::move(line));
        }
        _nodes = _tree.Match("*[label() != '#comment']");
        if (_nodes.size() == _lines.size()) return;
        throw LoginsError(LoginsError::Kind::Refused, "a PAM file has lines that libaugeas reads otherwise than PAM");
    }

    const std::vector<PamLine>& Lines() const { return _lines; }

    // In front of the line with this index.
    void Insert(std::size_t index, const std::string& type, const std::string& control, const std::string& module,
                const std::vector<std::string>& arguments) {
        const std::string label = std::to_string(1'000'000 + ++_added);
        _tree.InsertBefore(_nodes[index], label);
        _tree.Set(label + "/type", type);
        _tree.Set(label + "/control", control);
        _tree.Set(label + "/module", module);
        for (const std::string& word : arguments) _tree.Set(label + "/argument[last() + 1]", word);
    }
    void Remove(std::size_t index) { _tree.Remove(_nodes[index]); }
    std::string Text() { return _tree.Text(); }

 private:
    AugeasText _tree;
    std::vector<PamLine> _lines;
    std::vector<std::string> _nodes;
    int _added = 0;
};

bool IsOf(const PamLine& line, const std::string& type) {
    return line.kind == PamLine::Kind::Include || line.type == type;
}

bool LeadsToPassword(const PamFiles& files, const PamLine& line, const std::string& type) {
    if (!IsOf(line, type)) return false;
    if (!line.IncludesAnother()) return ModuleName(line) == kPassword;
    const std::string name = IncludedName(line.module);
    return files.contains(name) && Uses(files, name, type, kPassword);
}

// Whether a jump from the line at `from` may end behind the line at `place`. An included file may hold no rule at all.
bool JumpsOver(const std::vector<PamLine>& lines, std::size_t from, std::size_t place, const std::string& type) {
    int left = LongestJump(lines[from].control);
    std::size_t index = from + 1;
    for (; index < place && left > 0; ++index) {
        if (IsOf(lines[index], type) && !lines[index].IncludesAnother()) --left;
    }
    return left > 0;
}

constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

std::size_t PlaceFor(const PamFiles& files, const std::vector<PamLine>& lines, const std::string& type) {
    const auto anchor = std::find_if(lines.begin(), lines.end(),
                                     [&](const PamLine& line) { return LeadsToPassword(files, line, type); });
    if (anchor == lines.end()) return kNowhere;
    auto place = static_cast<std::size_t>(anchor - lines.begin());
    for (std::size_t index = place; index-- > 0;) {
        if (lines[index].type == type && JumpsOver(lines, index, place, type)) place = index;
    }
    return place;
}

// Whatever was not inserted must have survived, line by line.
void ProveOthersSurvived(const std::string& before, const std::string& after) {
    std::map<std::string, int> lines;
    for (const PamLine& line : ParsePam(after)) ++lines[line.raw];
    for (const PamLine& line : ParsePam(before)) {
        if (--lines[line.raw] >= 0) continue;
        throw LoginsError(LoginsError::Kind::Refused, "a PAM file cannot be edited without changing line " +
                                                          std::to_string(line.number) + " of it");
    }
}

std::string Join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += ' ' + word;
    return text;
}

}  // namespace

std::string WithPamModule(const PamFiles& files, const std::string& name, const ProviderModules& provider) {
    const std::string& text = files.at(name);
    PamTree tree(text);
    bool changed = false;
    for (const Shape& shape : kShapes) {
        if (Uses(files, name, shape.type, provider.pamModule)) continue;
        const std::size_t place = PlaceFor(files, tree.Lines(), shape.type);
        if (place == kNowhere) continue;
        if (shape.guarded) tree.Insert(place, shape.type, kGuardControl, kGuard, {});
        tree.Insert(place, shape.type, shape.control, provider.pamModule, provider.pamParameters);
        changed = true;
    }
    if (!changed) return text;
    std::string edited = tree.Text();
    ProveOthersSurvived(text, edited);
    return edited;
}

std::string WithPamModuleInTemplate(const PamFiles& files, const std::string& name, const ProviderModules& provider) {
    const std::vector<PamLine> lines = ParsePam(files.at(name));
    std::vector<std::string> added(lines.size());
    for (const Shape& shape : kShapes) {
        const std::size_t place = PlaceFor(files, lines, shape.type);
        if (place == kNowhere || Uses(files, name, shape.type, provider.pamModule)) continue;
        const std::string type = shape.type + std::string("\t");
        if (shape.guarded) added[place] += type + kGuardControl + '\t' + kGuard + '\n';
        added[place] += type + shape.control + '\t' + provider.pamModule + Join(provider.pamParameters) + '\n';
    }
    std::string text;
    for (std::size_t index = 0; index < lines.size(); ++index) text += added[index] + lines[index].raw;
    return text;
}

std::string WithoutPamModule(const PamFiles& files, const std::string& name, const std::string& module) {
    const std::string& text = files.at(name);
    if (!HasPamModule(text, module)) return text;
    const std::vector<PamLine> all = ParsePam(text);
    const std::set<int> own = OwnLines(all, module);
    const std::string kept = WithJumpsWithout(files, name, own);
    PamTree tree(kept);
    const std::vector<PamLine>& lines = tree.Lines();
    for (std::size_t index = 0; index < lines.size(); ++index) {
        if (own.contains(lines[index].number)) tree.Remove(index);
    }
    std::string edited = tree.Text();
    // The line end that a last line lacks is not the one in front of it.
    if (own.contains(all.back().number) && !edited.empty() && !edited.ends_with('\n')) edited += '\n';
    ProveOthersSurvived(edited, kept);
    if (ParsePam(edited).size() + own.size() == all.size()) return edited;
    throw LoginsError(LoginsError::Kind::Refused, "a PAM file cannot be edited without losing other lines of it");
}

bool HasPamModule(const std::string& text, const std::string& module) {
    const std::vector<PamLine> lines = ParsePam(text);
    return std::any_of(lines.begin(), lines.end(), [&](const PamLine& line) {
        return line.kind == PamLine::Kind::Rule && !line.IncludesAnother() && ModuleName(line) == module;
    });
}

// pam-auth-update replaces "end" by the number of rules up to the end of the block.
std::string PamProfile(const ProviderModules& provider) {
    const std::string module = provider.pamModule + Join(provider.pamParameters);
    const std::string guard = std::string("\t") + kGuardControl + "\t" + kGuard + '\n';
    return "Name: Directory logins (nimauth)\n"
           "Default: no\n"
           "Priority: 128\n"
           "Auth-Type: Primary\n"
           "Auth:\n\t[success=end default=ignore]\t" +
           module +
           " use_first_pass\n"
           "Auth-Initial:\n\t[success=end default=ignore]\t" +
           module + "\nAccount-Type: Additional\nAccount:\n" + guard + '\t' + kShapes[1].control + '\t' + module +
           "\nPassword-Type: Primary\nPassword:\n\t[success=end default=ignore]\t" + module +
           "\nSession-Type: Additional\nSession:\n\toptional\t" + module + '\n';
}

}  // namespace nimbrel::logins
