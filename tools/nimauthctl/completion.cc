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

// "$1" is the name so far and "$2" the next word: whether they make a longer one.
std::string KnownNames(const std::map<std::string, Place>& places) {
    std::string names;
    for (const auto& [name, place] : places) {
        if (!name.empty()) names += (names.empty() ? "" : "|") + Quoted(name);
    }
    return names;
}

constexpr char kMadeFrom[] = "# Made from nimauthctl's table of commands.\n";

}  // namespace

std::string BashCompletion() {
    const auto places = Places();
    std::string text = std::string("# bash completion for nimauthctl\n") + kMadeFrom +
                       "_nimauthctl() {\n"
                       "    local current=${COMP_WORDS[COMP_CWORD]} name='' longer word index words='' flags=''\n"
                       "    COMPREPLY=()\n"
                       "    for ((index = 1; index < COMP_CWORD; ++index)); do\n"
                       "        word=${COMP_WORDS[index]}\n"
                       "        case $word in\n"
                       "            " +
                       FlagsWithValue(places) +
                       ")\n"
                       "                [ $((index + 1)) -lt \"$COMP_CWORD\" ] || return 0\n"
                       "                index=$((index + 1)) ;;\n"
                       "            -*) ;;\n"
                       "            *)\n"
                       "                longer=${name:+$name }$word\n"
                       "                case $longer in\n"
                       "                    " +
                       KnownNames(places) +
                       ") name=$longer ;;\n"
                       "                esac ;;\n"
                       "        esac\n"
                       "    done\n"
                       "    case $name in\n";
    for (const auto& [name, place] : places) {
        text += "        " + Quoted(name) + ")";
        std::string words;
        for (const Follower& follower : place.words) words += (words.empty() ? "" : " ") + follower.word;
        if (!words.empty()) text += " words=" + Quoted(words);
        if (!place.options.empty()) text += " flags=" + Quoted(AllFlags(place.options));
        text += " ;;\n";
    }
    return text +
           "    esac\n"
           "    case $current in\n"
           "        -*) words=\"$flags " +
           AllFlags(GlobalOptions()) +
           "\" ;;\n"
           "    esac\n"
           "    while IFS='' read -r word; do COMPREPLY+=(\"$word\"); done < <(compgen -W \"$words\" -- \"$current\")\n"
           "}\n"
           "complete -F _nimauthctl nimauthctl\n";
}

std::string ZshCompletion() {
    const auto places = Places();
    const auto entry = [](const std::string& word, const std::string& help) {
        std::string text;
        for (const char c : word + '\1' + help) text += c == ':' ? std::string("\\:") : std::string(1, c);
        std::replace(text.begin(), text.end(), '\1', ':');
        return ' ' + Quoted(text);
    };
    const auto flags = [&](const std::vector<Option>& options) {
        std::string text;
        for (const Option& option : options) {
            for (const std::string& flag : Flags(option)) text += entry(flag, option.help);
        }
        return text;
    };
    std::string text = std::string("#compdef nimauthctl\n") + kMadeFrom +
                       "local name='' longer word\n"
                       "local -a entries flags\n"
                       "integer index\n"
                       "for ((index = 2; index < CURRENT; ++index)); do\n"
                       "    word=${words[index]}\n"
                       "    case $word in\n"
                       "        (" +
                       FlagsWithValue(places) +
                       ")\n"
                       "            (( index + 1 < CURRENT )) || return 1\n"
                       "            (( ++index )) ;;\n"
                       "        (-*) ;;\n"
                       "        (*)\n"
                       "            longer=${name:+$name }$word\n"
                       "            case $longer in\n"
                       "                (" +
                       KnownNames(places) +
                       ") name=$longer ;;\n"
                       "            esac ;;\n"
                       "    esac\n"
                       "done\n"
                       "case $name in\n";
    for (const auto& [name, place] : places) {
        text += "    (" + Quoted(name) + ")\n        entries=(";
        for (const Follower& follower : place.words) text += entry(follower.word, follower.help);
        text += " )\n        flags=(" + flags(place.options) + " ) ;;\n";
    }
    return text + "esac\nflags+=(" + flags(GlobalOptions()) +
           " )\n"
           "if [[ ${words[CURRENT]} == -* ]]; then\n"
           "    _describe -o option flags\n"
           "else\n"
           "    _describe command entries\n"
           "fi\n";
}

std::string FishCompletion() {
    const auto places = Places();
    std::string names;
    for (const auto& [name, place] : places) {
        if (!name.empty()) names += ' ' + FishQuoted(name);
    }
    std::string valued = FlagsWithValue(places);
    std::replace(valued.begin(), valued.end(), '|', ' ');
    std::string text = std::string("# fish completion for nimauthctl\n") + kMadeFrom +
                       "function __nimauthctl_name\n"
                       "    set -l name ''\n"
                       "    set -l skip 0\n"
                       "    for word in (commandline -opc)[2..-1]\n"
                       "        if test $skip = 1\n"
                       "            set skip 0\n"
                       "        else if contains -- $word " +
                       valued +
                       "\n"
                       "            set skip 1\n"
                       "        else if not string match -q -- '-*' $word\n"
                       "            set -l longer (string trim -- \"$name $word\")\n"
                       "            contains -- $longer" +
                       names +
                       "; and set name $longer\n"
                       "        end\n"
                       "    end\n"
                       "    echo $name\n"
                       "end\n"
                       "function __nimauthctl_at\n"
                       "    test (__nimauthctl_name) = \"$argv\"\n"
                       "end\n"
                       "complete -c nimauthctl -f\n";
    const auto option = [](const Option& added, const std::string& condition) {
        std::string line = "complete -c nimauthctl" + condition;
        for (const std::string& flag : Flags(added)) {
            line += flag.starts_with("--") ? " -l " + flag.substr(2) : " -s " + flag.substr(1);
        }
        return line + (added.value.empty() ? "" : " -x") + " -d " + FishQuoted(added.help) + '\n';
    };
    for (const auto& [name, place] : places) {
        const std::string condition = " -n " + FishQuoted("__nimauthctl_at " + name);
        for (const Follower& follower : place.words) {
            text += "complete -c nimauthctl" + condition + " -a " + follower.word + " -d " + FishQuoted(follower.help) +
                    '\n';
        }
        for (const Option& added : place.options) text += option(added, condition);
    }
    for (const Option& added : GlobalOptions()) text += option(added, "");
    return text;
}

}  // namespace nimbrel::nimauthctl
