#include "tools/nimauthctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <set>

#include "tools/nimauthctl/command_table.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr int kLongestTimeout = 86400;

// One parser, for the options of every command and, once the command is known, for its own words too.
class Parser {
 public:
    // `command` is null for the part before the command's name. A repeatable argument is taken up to `words` times.
    Parser(const Command* command, Invocation& invocation, std::size_t words = 0);

    // Returns the words from the first one that is not an option on, or those that were not understood.
    std::vector<std::string> Parse(const std::vector<std::string>& words);

    // Hands over the values in the order of the table.
    void Deliver();

 private:
    CLI::Option* AddOption(const Option& option);
    void AddArgument(const Argument& argument);

    CLI::App _app;
    Invocation& _invocation;
    std::vector<std::pair<std::string, CLI::Option*>> _options;
    std::set<std::string> _flags;
};

bool Accept(const CLI::results_t&) { return true; }

Parser::Parser(const Command* command, Invocation& invocation, std::size_t words) : _invocation(invocation) {
    _app.set_help_flag();
    _app.allow_extras(command != nullptr);
    _app.prefix_command(command == nullptr);
    for (const Option& option : GlobalOptions()) _options.emplace_back(option.Key(), AddOption(option));
    if (command == nullptr) return;
    for (const Option& option : command->options) _options.emplace_back(option.Key(), AddOption(option));
    for (const Argument& argument : command->arguments) {
        for (std::size_t time = argument.repeatable ? words : 1; time > 0; --time) AddArgument(argument);
    }
}

CLI::Option* Parser::AddOption(const Option& option) {
    CLI::Option* const added = _app.add_option(option.flags, CLI::callback_t(Accept));
    if (option.value.empty()) {
        added->type_size(0)->expected(0)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        _flags.insert(option.Key());
    } else if (option.repeatable) {
        added->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    } else {
        added->expected(1);
    }
    return added;
}

// The parser's own names for arguments are narrower than ours, and it takes apart "[a,b]" where one takes many words.
void Parser::AddArgument(const Argument& argument) {
    const std::string name = "argument" + std::to_string(_options.size());
    _options.emplace_back(argument.name, _app.add_option(name, CLI::callback_t(Accept))->expected(1));
}

std::vector<std::string> Parser::Parse(const std::vector<std::string>& words) {
    std::vector<std::string> reversed(words.rbegin(), words.rend());
    _app.parse(reversed);
    return _app.remaining();
}

void Parser::Deliver() {
    for (const auto& [key, option] : _options) {
        if (option->count() == 0) continue;
        for (const std::string& value : option->results()) {
            if (_flags.contains(key) && value != "true") throw UsageError("--" + key + " takes no value");
            _invocation.Add(key, value);
        }
    }
}

std::string SeeHelp(const std::string& name) {
    return "see 'nimauthctl " + name + (name.empty() ? "" : " ") + "--help'";
}

// As much of a word as tells which option it is.
std::string OptionName(const std::string& word) {
    if (word.starts_with("--")) return word.substr(0, word.find('='));
    return word.substr(0, 2);
}

[[noreturn]] void RefuseExtra(const std::string& commandName, const std::vector<std::string>& extras) {
    const auto option = std::find_if(extras.begin(), extras.end(),
                                     [](const std::string& word) { return word.size() > 1 && word[0] == '-'; });
    if (option == extras.end()) throw UsageError("there are more arguments than expected", SeeHelp(commandName));
    constexpr std::array<std::string_view, 4> kPasswordOptions = {"--password", "--pass", "-p", "-w"};
    const std::string name = OptionName(*option);
    if (std::find(kPasswordOptions.begin(), kPasswordOptions.end(), name) != kPasswordOptions.end()) {
        throw UsageError("unknown option '" + name + "': a password is never taken from the command line",
                         "leave it out to be asked, or use --password-stdin or --password-fd N");
    }
    throw UsageError("unknown option '" + name + "'", SeeHelp(commandName));
}

std::vector<std::string> ParseOrRefuse(Parser& parser, const std::vector<std::string>& words,
                                       const std::string& commandName) {
    try {
        return parser.Parse(words);
    } catch (const CLI::ArgumentMismatch& error) {
        const std::string_view message = error.what();
        throw UsageError("option " + std::string(message.substr(0, message.find(':'))) + " needs one value, given once",
                         SeeHelp(commandName));
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what(), SeeHelp(commandName));
    }
}

// Whether the word is an option of every command whose value is the next word.
bool TakesAValue(const std::string& word) {
    return std::any_of(GlobalOptions().begin(), GlobalOptions().end(),
                       [&](const Option& option) { return !option.value.empty() && word == "--" + option.Key(); });
}

// Whether the word takes something in or out, as "+sshd" and "-sshd" do. An option of every command never does.
bool IsSigned(const std::string& word) {
    if (word.size() < 2 || word == "-q" || word == "-v" || word == "-h") return false;
    return word[0] == '+' || (word[0] == '-' && word[1] != '-');
}

// Puts signed words behind the mark, where they are arguments, and keeps the order of the arguments.
std::vector<std::string> WithSignedWordsAsArguments(const std::vector<std::string>& words) {
    std::vector<std::string> options;
    std::vector<std::string> arguments = {"--"};
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (*word == "--") {
            arguments.insert(arguments.end(), word + 1, words.end());
            break;
        }
        const bool isOption = word->starts_with('-') && !IsSigned(*word);
        (isOption ? options : arguments).push_back(*word);
        if (TakesAValue(*word) && word + 1 != words.end()) options.push_back(*++word);
    }
    options.insert(options.end(), arguments.begin(), arguments.end());
    return options;
}

// The longest run of leading words that names a command or a group, which is taken from `words`.
std::string TakeName(std::vector<std::string>& words) {
    std::string name;
    while (!words.empty()) {
        const std::string longer = name.empty() ? words.front() : name + ' ' + words.front();
        if (FindCommand(longer) == nullptr && FindGroup(longer) == nullptr) break;
        name = longer;
        words.erase(words.begin());
        if (FindCommand(name) != nullptr) break;
    }
    const CommandGroup* const group = FindGroup(name);
    const bool isSigned =
        group != nullptr && !group->signedCommand.empty() && !words.empty() && IsSigned(words.front());
    return isSigned ? group->signedCommand : name;
}

void CheckComplete(const Command& command, const Invocation& invocation) {
    if (!command.alternative.empty() && invocation.Has(command.alternative)) return;
    for (const Argument& argument : command.arguments) {
        if (!argument.optional && !invocation.Has(argument.name)) {
            throw UsageError(argument.name + " is missing", SeeHelp(command.name));
        }
    }
    for (const Option& option : command.options) {
        if (option.required && !invocation.Has(option.Key())) {
            throw UsageError("option " + option.flags + ' ' + option.value + " is missing", SeeHelp(command.name));
        }
    }
}

// One of the words, by their numbers.
std::size_t ReadChoice(const Invocation& given, const std::string& key, const std::vector<std::string>& words) {
    if (!given.Has(key)) return 0;
    if (given.Texts(key).size() > 1) throw UsageError("option --" + key + " needs one value, given once");
    const auto found = std::find(words.begin(), words.end(), given.Text(key));
    if (found != words.end()) return static_cast<std::size_t>(found - words.begin());
    throw UsageError("--" + key + " takes " + words[0] + ", " + words[1] + " or " + words[2]);
}

Settings ReadSettings(const Invocation& given) {
    Settings settings;
    settings.color = static_cast<ColorUse>(ReadChoice(given, "color", {"auto", "always", "never"}));
    settings.progress = static_cast<ProgressForm>(ReadChoice(given, "progress", {"auto", "json", "none"}));
    settings.json = given.Has("json");
    settings.quiet = given.Has("quiet");
    settings.verbose = given.Has("verbose");
    if (given.Texts("timeout").size() > 1) throw UsageError("option --timeout needs one value, given once");
    settings.timeoutGiven = given.Has("timeout");
    if (settings.timeoutGiven) {
        settings.timeoutSeconds =
            static_cast<int>(ParseInteger("--timeout", given.Text("timeout"), 0, kLongestTimeout));
    }
    return settings;
}

[[noreturn]] void RefuseName(const std::string& name, const std::vector<std::string>& rest) {
    if (rest.empty()) {
        throw UsageError(name.empty() ? "no command given" : "'" + name + "' needs one of its commands", SeeHelp(name));
    }
    if (rest.front().starts_with("-")) RefuseExtra(name, rest);
    throw UsageError(name.empty() ? "unknown command" : "unknown command of '" + name + "'", SeeHelp(name));
}

bool AsksForHelp(const std::vector<std::string>& words) {
    return !words.empty() && (words.front() == "--help" || words.front() == "-h");
}

}  // namespace

CommandLine ParseCommandLine(const std::vector<std::string>& words) {
    CommandLine line;
    Invocation given;
    Parser before(nullptr, given);
    std::vector<std::string> rest = ParseOrRefuse(before, words, "");
    before.Deliver();
    const std::string name = TakeName(rest);
    line.command = FindCommand(name);
    line.group = FindGroup(name);
    if (line.command != nullptr) {
        if (line.command->signedWords) rest = WithSignedWordsAsArguments(rest);
        Parser after(line.command, given, rest.size());
        std::vector<std::string> extras = ParseOrRefuse(after, rest, name);
        after.Deliver();
        // The mark before arguments that begin with '-' is handed back too.
        if (const auto mark = std::find(extras.begin(), extras.end(), "--"); mark != extras.end()) extras.erase(mark);
        if (!given.Has("help") && !extras.empty()) RefuseExtra(name, extras);
    }
    if (given.Has("help") || (line.command == nullptr && AsksForHelp(rest))) {
        line.request = CommandLine::Request::Help;
        return line;
    }
    line.invocation = given;
    line.invocation.SetGlobal(ReadSettings(given));
    if (given.Has("version")) {
        line.request = CommandLine::Request::Version;
        return line;
    }
    if (line.command == nullptr) RefuseName(name, rest);
    CheckComplete(*line.command, line.invocation);
    return line;
}

bool AsksForJson(const std::vector<std::string>& words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::find(words.begin(), end, "--json") != end;
}

}  // namespace nimbrel::nimauthctl
