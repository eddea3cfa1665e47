#include "tools/loginfiles/pam_jumps.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <string_view>

#include "tools/loginfiles/common_lines.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/numbers.h"

namespace nimbrel::logins {
namespace {

using Chain = std::vector<EffectiveRule>;

constexpr const char* kTypes[] = {"auth", "account", "password", "session"};
constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

// What stands behind one '=' of a control: "2", "ignore", "die".
struct Action {
    std::size_t begin = 0;
    std::size_t size = 0;
    int count = -1;  // that it jumps by; 0 for "ignore", -1 for any other
};

std::vector<Action> Actions(std::string_view control) {
    std::vector<Action> actions;
    for (std::size_t sign = control.find('='); sign != std::string_view::npos; sign = control.find('=', sign + 1)) {
        Action action;
        action.begin = std::min(control.find_first_not_of(" \t", sign + 1), control.size());
        action.size = std::min(control.find_first_of(" \t\n]=", action.begin), control.size()) - action.begin;
        const std::string_view word = control.substr(action.begin, action.size);
        if (!word.empty() && std::isdigit(static_cast<unsigned char>(word[0])) != 0) {
            action.count = LeadingNumber<int>(word);
        } else if (word == "ignore") {
            action.count = 0;
        }
        actions.push_back(action);
    }
    return actions;
}

// The control with one sign for every jump. One over nothing is "ignore", so that stands for it as well.
std::string WithoutCounts(std::string control) {
    const std::vector<Action> actions = Actions(control);
    for (auto action = actions.rbegin(); action != actions.rend(); ++action) {
        if (action->count >= 0) control.replace(action->begin, action->size, "N");
    }
    return control;
}

// All that a line says but the numbers of its jumps.
std::string Meaning(const PamLine& line) {
    std::string text = std::to_string(static_cast<int>(line.kind)) + (line.optional ? '-' : ' ');
    for (const std::string& word : {line.type, WithoutCounts(line.control), line.module}) text += word + '\0';
    for (const std::string& word : line.arguments) text += word + '\0';
    return text;
}

// Where a jump by `count` from the rule at `from` goes on: the index of a rule, or of what follows the substack or the
// chain. Nowhere if it asks for more rules than there are: libpam refuses then.
std::size_t Landing(const Chain& chain, std::size_t from, int count) {
    const int level = chain[from].level;
    std::size_t index = from + 1;
    for (; count > 0; --count) {
        if (index >= chain.size() || chain[index].level < level) return kNowhere;
        ++index;
        while (index < chain.size() && chain[index].level > level) ++index;
    }
    return index;
}

// The numbers of the lines that stand in the other text, too.
std::set<int> LinesThatStay(const std::vector<PamLine>& lines, const std::vector<PamLine>& others) {
    const auto meanings = [](const std::vector<PamLine>& all) {
        std::vector<std::string> texts(all.size());
        std::transform(all.begin(), all.end(), texts.begin(), Meaning);
        return texts;
    };
    const std::vector<std::string> here = meanings(lines);
    const std::vector<std::string> there = meanings(others);
    std::set<int> numbers;
    for (const auto& [position, other] : CommonLines({here.begin(), here.end()}, {there.begin(), there.end()})) {
        numbers.insert(lines[position].number);
    }
    return numbers;
}

// The lines that come or go.
class Own {
 public:
    // The module's, but those that stand in the other files, too: an administrator's own rule of the module stays.
    Own(const PamFiles& files, const PamFiles& others, const std::string& module) {
        for (const auto& [name, text] : files) _lines[name] = LinesOf(text, TextIn(others, name), module);
    }
    Own(const std::string& file, const std::set<int>& lines) { _lines[file] = lines; }

    bool Has(const EffectiveRule& rule) const {
        const auto lines = _lines.find(rule.file);
        return lines != _lines.end() && lines->second.contains(rule.line.number);
    }

 private:
    static std::string TextIn(const PamFiles& files, const std::string& name) {
        const auto file = files.find(name);
        return file == files.end() ? "" : file->second;
    }
    static std::set<int> LinesOf(const std::string& text, const std::string& other, const std::string& module) {
        if (text == other) return {};
        const std::vector<PamLine> lines = ParsePam(text);
        std::set<int> own = OwnLines(lines, module);
        const std::vector<PamLine> others = own.empty() ? std::vector<PamLine>() : ParsePam(other);
        if (OwnLines(others, module).empty()) return own;
        for (const int number : LinesThatStay(lines, others)) own.erase(number);
        return own;
    }

    std::map<std::string, std::set<int>> _lines;
};

[[noreturn]] void Refuse(const EffectiveRule& rule) {
    throw LoginsError(LoginsError::Kind::Refused,
                      "the rule in line " + std::to_string(rule.line.number) + " of '" + rule.file + "' (" +
                          rule.line.control + " " + rule.line.module +
                          ") jumps over the place of the change and would no longer end where it does",
                      "take that jump out or move it, or change the rules by hand");
}

bool SameRule(const EffectiveRule& a, const EffectiveRule& b) {
    return a.file == b.file && a.level == b.level && Meaning(a.line) == Meaning(b.line);
}

// Where a jump ends: at this rule, our own ones left out, or behind the last one.
struct End {
    const EffectiveRule* rule = nullptr;
    bool isMade = false;
    std::size_t kept = kNowhere;  // how many rules that have to stay are in front of it
    std::size_t made = 0;         // and how many made ones behind the last of these
};

// One chain of a service, in which our own rules come and go, made ones may change, and all others have to stay.
class ProvenChain {
 public:
    ProvenChain(Chain chain, const Own& own, const std::set<std::string>& made) : _chain(std::move(chain)) {
        for (const EffectiveRule& rule : _chain) {
            _kinds.push_back(own.Has(rule) ? Kind::Own : made.contains(rule.file) ? Kind::Made : Kind::Kept);
            if (_kinds.back() == Kind::Kept) _kept.push_back(_kinds.size() - 1);
        }
    }

    std::size_t Size() const { return _kept.size(); }
    const EffectiveRule& Rule(std::size_t number) const { return _chain[_kept[number]]; }
    End EndOf(std::size_t number, int count) const {
        std::size_t index = Landing(_chain, _kept[number], count);
        End end;
        if (index == kNowhere) return end;
        end.kept = 0;
        for (std::size_t before = 0; before < index; ++before) {
            if (_kinds[before] == Kind::Made) ++end.made;
            if (_kinds[before] != Kind::Kept) continue;
            ++end.kept;
            end.made = 0;
        }
        while (index < _chain.size() && _kinds[index] == Kind::Own) ++index;
        if (index == _chain.size()) return end;
        end.rule = &_chain[index];
        end.isMade = _kinds[index] == Kind::Made;
        return end;
    }

 private:
    enum class Kind { Own, Made, Kept };

    Chain _chain;
    std::vector<Kind> _kinds;
    std::vector<std::size_t> _kept;
};

// Behind the same rule that has to stay, and in front of the made ones that follow there, behind them, or at the same one.
bool SameEnd(const End& a, const End& b) {
    if (a.kept != b.kept) return false;
    if (!a.isMade && !b.isMade) return true;
    if (a.made == 0 && b.made == 0) return true;
    return a.isMade && b.isMade && a.made == b.made && SameRule(*a.rule, *b.rule);
}

void ProveChain(const ProvenChain& before, const ProvenChain& after) {
    for (std::size_t index = 0; index < before.Size(); ++index) {
        const EffectiveRule& rule = before.Rule(index);
        if (index >= after.Size() || !SameRule(rule, after.Rule(index))) Refuse(rule);
        const std::vector<Action> was = Actions(rule.line.control);
        const std::vector<Action> is = Actions(after.Rule(index).line.control);
        for (std::size_t number = 0; number < was.size(); ++number) {
            if (was[number].count <= 0 && is[number].count <= 0) continue;
            if (!SameEnd(before.EndOf(index, was[number].count), after.EndOf(index, is[number].count))) Refuse(rule);
        }
    }
    if (after.Size() > before.Size()) Refuse(after.Rule(before.Size()));
}

// Whether a jump may end at the rule and go on behind it when it is gone: what it says is not needed, or it is ours.
bool MayBeMissed(const PamLine& line) {
    return line.control == "sufficient" || line.control == "optional" || line.control == kAccountControl;
}

// The count of a jump without the rules that go.
int CountWithout(const Chain& chain, std::size_t from, int count, const Own& own) {
    int left = count;
    for (int passed = 0; passed < count; ++passed) {
        const std::size_t index = Landing(chain, from, passed);
        if (index == kNowhere || index >= chain.size() || chain[index].level < chain[from].level) break;
        if (own.Has(chain[index])) --left;
    }
    std::size_t end = Landing(chain, from, count);
    if (end < chain.size() && own.Has(chain[end]) && ModuleName(chain[end].line) == kGuard) ++end;
    if (end < chain.size() && own.Has(chain[end]) && !MayBeMissed(chain[end].line)) Refuse(chain[from]);
    return left;
}

// The line with the new counts in the brackets of its control.
std::string WithCounts(const EffectiveRule& rule, const std::vector<Action>& actions, const std::vector<int>& counts) {
    std::string raw = rule.line.raw;
    const std::size_t begin = raw.find('[');
    const std::size_t end = std::min(raw.find(']', std::min(begin, raw.size())), raw.size());
    const std::vector<Action> places =
        begin < end ? Actions(std::string_view(raw).substr(begin, end + 1 - begin)) : std::vector<Action>();
    if (places.size() != actions.size()) Refuse(rule);
    for (std::size_t number = actions.size(); number-- > 0;) {
        if (actions[number].count <= 0 || actions[number].count == counts[number]) continue;
        raw.replace(begin + places[number].begin, places[number].size,
                    counts[number] == 0 ? "ignore" : std::to_string(counts[number]));
    }
    return raw;
}

std::string LineWithout(const Chain& chain, std::size_t index, const Own& own) {
    const std::vector<Action> actions = Actions(chain[index].line.control);
    std::vector<int> counts(actions.size());
    std::transform(actions.begin(), actions.end(), counts.begin(), [&](const Action& action) {
        return action.count <= 0 ? action.count : CountWithout(chain, index, action.count, own);
    });
    const bool same = std::equal(actions.begin(), actions.end(), counts.begin(),
                                 [](const Action& action, int count) { return action.count == count; });
    return same ? chain[index].line.raw : WithCounts(chain[index], actions, counts);
}

}  // namespace

std::set<int> OwnLines(const std::vector<PamLine>& lines, const std::string& module) {
    std::set<int> own;
    const PamLine* previous = nullptr;
    for (const PamLine& line : lines) {
        if (line.kind == PamLine::Kind::Nothing) continue;
        if (line.kind == PamLine::Kind::Rule && !line.IncludesAnother() && ModuleName(line) == module) {
            own.insert(line.number);
            const bool guarded = previous != nullptr && ModuleName(*previous) == kGuard &&
                                 previous->type == line.type && previous->control == kGuardControl;
            if (guarded) own.insert(previous->number);
        }
        previous = &line;
    }
    return own;
}

std::string WithJumpsWithout(const PamFiles& files, const std::string& name, const std::set<int>& lines) {
    const Own own(name, lines);
    std::map<int, std::string> changed;
    for (const char* const type : kTypes) {
        const Chain chain = RuleChain(files, name, type);
        for (std::size_t index = 0; index < chain.size(); ++index) {
            if (chain[index].file != name || own.Has(chain[index])) continue;
            changed[chain[index].line.number] = LineWithout(chain, index, own);
        }
    }
    std::string text;
    for (const PamLine& line : ParsePam(files.at(name))) {
        const auto other = changed.find(line.number);
        text += other == changed.end() ? line.raw : other->second;
    }
    return text;
}

void ProveJumpsKept(const PamFiles& before, const PamFiles& after, const std::string& module, const IsMade& isMade) {
    const Own ownBefore(before, after, module);
    const Own ownAfter(after, before, module);
    std::set<std::string> made;
    for (const PamFiles* const files : {&before, &after}) {
        for (const auto& file : *files) {
            if (isMade && isMade(file.first)) made.insert(file.first);
        }
    }
    for (const auto& [name, text] : before) {
        if (made.contains(name)) continue;
        for (const char* const type : kTypes) {
            ProveChain({RuleChain(before, name, type), ownBefore, made},
                       {RuleChain(after, name, type), ownAfter, made});
        }
    }
}

}  // namespace nimbrel::logins
