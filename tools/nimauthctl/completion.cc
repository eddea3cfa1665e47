// The completions. All work alike: the words before the cursor that are no options make the name of a command or a
// group, as far as they go; what may follow is looked up by that name.

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/nimauthctl/command_table.h"
#include "tools/nimauthctl/documents.h"

namespace nimbrel::nimauthctl {
namespace {

struct Follower {
    std::string word;
    std::string help;
};

// What may follow the name of a command or a group; "" is the beginning.
struct Place {
    std::vector<Follower> words;
    std::vector<Option> options;
};

std::string HelpOf(const std::string& name) {
    if (const Command* const command = FindCommand(name)) return command->summary;
    const CommandGroup* const group = FindGroup(name);
    return group == nullptr ? "" : group->summary;
}

void AddWord(Place& place, const std::string& word, const std::string& help) {
    const bool isThere =
        std::any_of(place.words.begin(), place.words.end(), [&](const Follower& known) { return known.word == word; });
    if (!isThere) place.words.push_back({word, help});
}

std::map<std::string, Place> Places() {
    std::map<std::string, Place> places;
    for (const Command& command : Commands()) {
        std::size_t begin = 0;
        while (begin < command.name.size()) {
            const std::size_t end = std::min(command.name.find(' ', begin), command.name.size());
            const std::string name = command.name.substr(0, end);
            AddWord(places[begin == 0 ? "" : command.name.substr(0, begin - 1)],
                    command.name.substr(begin, end - begin), HelpOf(name));
            begin = end + 1;
        }
        places[command.name].options = command.options;
    }
    return places;
}

std::vector<std::string> Flags(const Option& option) {
    const std::size_t comma = option.flags.find(',');
    if (comma == std::string::npos) return {option.flags};
    return {option.flags.substr(0, comma), option.flags.substr(comma + 1)};
}

std::string AllFlags(const std::vector<Option>& options) {
    std::string text;
    for (const Option& option : options) {
        for (const std::string& flag : Flags(option)) text += (text.empty() ? "" : " ") + flag;
    }
    return text;
}

// The options whose value is a word of its own.
std::string FlagsWithValue(const std::map<std::string, Place>& places) {
    std::vector<std::string> flags;
    const auto add = [&](const std::vector<Option>& options) {
        for (const Option& option : options) {
            if (option.value.empty()) continue;
            for (const std::string& flag : Flags(option)) {
                if (std::find(flags.begin(), flags.end(), flag) == flags.end()) flags.push_back(flag);
            }
        }
    };
    add(GlobalOptions());
    for (const auto& [name, place] : places) add(place.options);
    std::string text;
    for (const std::string& flag : flags) text += (text.empty() ? "" : "|") + flag;
    return text;
}

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + '\'';
}

// fish has a way of its own to quote.
std::string FishQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '\'';
}

// "'directory'|'directory user'", the patterns of all names.
std::string KnownNames(const std::map<std::string, Place>& places) {
    std::string names;
    for (const auto& [name, place] : places) {
        if (!name.empty()) names += (names.empty() ? "" : "|") + Quoted(name);
    }
    return names;
}

// The text with what stands for each "@NAME@" in its place. Every name occurs once.
std::string Filled(std::string text, const std::vector<std::pair<std::string_view, std::string>>& values) {
    for (const auto& [name, value] : values) text.replace(text.find(name), name.size(), value);
    return text;
}

// --- bash ---

constexpr char kBash[] = R"(# bash completion for nimauthctl
# Made from nimauthctl's table of commands.
_nimauthctl() {
    local current=${COMP_WORDS[COMP_CWORD]} name='' longer word index words='' flags=''
    COMPREPLY=()
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        case $word in
            @VALUED@)
                [ $((index + 1)) -lt "$COMP_CWORD" ] || return 0
                index=$((index + 1)) ;;
            -*) ;;
            *)
                longer=${name:+$name }$word
                case $longer in
                    @NAMES@) name=$longer ;;
                esac ;;
        esac
    done
    case $name in
@PLACES@    esac
    case $current in
        -*) words="$flags @GLOBAL@" ;;
    esac
    while IFS='' read -r word; do COMPREPLY+=("$word"); done < <(compgen -W "$words" -- "$current")
}
complete -F _nimauthctl nimauthctl
)";

std::string BashPlace(const std::string& name, const Place& place) {
    std::string words;
    for (const Follower& follower : place.words) words += (words.empty() ? "" : " ") + follower.word;
    std::string text = "        " + Quoted(name) + ")";
    if (!words.empty()) text += " words=" + Quoted(words);
    if (!place.options.empty()) text += " flags=" + Quoted(AllFlags(place.options));
    return text + " ;;\n";
}

// --- zsh ---

constexpr char kZsh[] = R"(#compdef nimauthctl
# Made from nimauthctl's table of commands.
local name='' longer word
local -a entries flags
integer index
for ((index = 2; index < CURRENT; ++index)); do
    word=${words[index]}
    case $word in
        (@VALUED@)
            (( index + 1 < CURRENT )) || return 1
            (( ++index )) ;;
        (-*) ;;
        (*)
            longer=${name:+$name }$word
            case $longer in
                (@NAMES@) name=$longer ;;
            esac ;;
    esac
done
case $name in
@PLACES@esac
flags+=(@GLOBAL@ )
if [[ ${words[CURRENT]} == -* ]]; then
    _describe -o option flags
else
    _describe command entries
fi
)";

// What _describe takes: " 'word:its help'", where a colon of either is escaped.
std::string ZshEntry(const std::string& word, const std::string& help) {
    const auto escaped = [](const std::string& text) {
        std::string result;
        for (const char c : text) result += c == ':' ? std::string("\\:") : std::string(1, c);
        return result;
    };
    return ' ' + Quoted(escaped(word) + ':' + escaped(help));
}

std::string ZshFlags(const std::vector<Option>& options) {
    std::string text;
    for (const Option& option : options) {
        for (const std::string& flag : Flags(option)) text += ZshEntry(flag, option.help);
    }
    return text;
}

std::string ZshPlace(const std::string& name, const Place& place) {
    std::string text = "    (" + Quoted(name) + ")\n        entries=(";
    for (const Follower& follower : place.words) text += ZshEntry(follower.word, follower.help);
    return text + " )\n        flags=(" + ZshFlags(place.options) + " ) ;;\n";
}

// --- fish ---

constexpr char kFish[] = R"(# fish completion for nimauthctl
# Made from nimauthctl's table of commands.
function __nimauthctl_name
    set -l name ''
    set -l skip 0
    for word in (commandline -opc)[2..-1]
        if test $skip = 1
            set skip 0
        else if contains -- $word @VALUED@
            set skip 1
        else if not string match -q -- '-*' $word
            set -l longer (string trim -- "$name $word")
            contains -- $longer@NAMES@; and set name $longer
        end
    end
    echo $name
end
function __nimauthctl_at
    test (__nimauthctl_name) = "$argv"
end
complete -c nimauthctl -f
@PLACES@)";

std::string FishOption(const Option& option, const std::string& condition) {
    std::string line = "complete -c nimauthctl" + condition;
    for (const std::string& flag : Flags(option)) {
        line += flag.starts_with("--") ? " -l " + flag.substr(2) : " -s " + flag.substr(1);
    }
    return line + (option.value.empty() ? "" : " -x") + " -d " + FishQuoted(option.help) + '\n';
}

std::string FishPlace(const std::string& name, const Place& place) {
    const std::string condition = " -n " + FishQuoted("__nimauthctl_at " + name);
    std::string text;
    for (const Follower& follower : place.words) {
        text +=
            "complete -c nimauthctl" + condition + " -a " + follower.word + " -d " + FishQuoted(follower.help) + '\n';
    }
    for (const Option& option : place.options) text += FishOption(option, condition);
    return text;
}

std::string FishNames(const std::map<std::string, Place>& places) {
    std::string names;
    for (const auto& [name, place] : places) {
        if (!name.empty()) names += ' ' + FishQuoted(name);
    }
    return names;
}

// ---

std::string ForEach(const std::map<std::string, Place>& places,
                    std::string (*write)(const std::string&, const Place&)) {
    std::string text;
    for (const auto& [name, place] : places) text += write(name, place);
    return text;
}

}  // namespace

std::string BashCompletion() {
    const auto places = Places();
    return Filled(kBash, {{"@VALUED@", FlagsWithValue(places)},
                          {"@NAMES@", KnownNames(places)},
                          {"@PLACES@", ForEach(places, BashPlace)},
                          {"@GLOBAL@", AllFlags(GlobalOptions())}});
}

std::string ZshCompletion() {
    const auto places = Places();
    return Filled(kZsh, {{"@VALUED@", FlagsWithValue(places)},
                         {"@NAMES@", KnownNames(places)},
                         {"@PLACES@", ForEach(places, ZshPlace)},
                         {"@GLOBAL@", ZshFlags(GlobalOptions())}});
}

std::string FishCompletion() {
    const auto places = Places();
    std::string valued = FlagsWithValue(places);
    std::replace(valued.begin(), valued.end(), '|', ' ');
    std::string global;
    for (const Option& option : GlobalOptions()) global += FishOption(option, "");
    return Filled(
        kFish,
        {{"@VALUED@", valued}, {"@NAMES@", FishNames(places)}, {"@PLACES@", ForEach(places, FishPlace) + global}});
}

}  // namespace nimbrel::nimauthctl
