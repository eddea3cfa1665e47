// What a command is: its name, what it takes, its help and its function.
//
// Everything that tells a person or a shell about the commands (parsers, --help, and whatever else lists them) is made
// from these descriptions, so that none can fall behind. Each command's source makes its own `Command`;
// `command_table.h` lists them all.

#ifndef NIMAUTHCTL_COMMAND_H_
#define NIMAUTHCTL_COMMAND_H_

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/nimauthctl/exit_code.h"

namespace nimbrel::nimauthctl {

class Report;

// A word after the command's name. Optional ones come last, and behind them at most one that is repeatable.
struct Argument {
    std::string name;  // as shown, and the key for `Invocation::Text`: "DOMAIN[/OU]"
    std::string help = {};
    bool optional = false;
    bool repeatable = false;  // takes all the words that remain
};

// An option or a flag.
struct Option {
    std::string flags;       // "-U,--user"; the last one without its dashes is the key: "user"
    std::string value = {};  // what the value stands for, "USER"; empty for a flag
    std::string help = {};
    bool required = false;
    bool repeatable = false;

    std::string Key() const { return flags.substr(flags.rfind("--") + 2); }
};

struct Example {
    std::string commandLine;
    std::string comment;
};

enum class ColorUse { Auto, Always, Never };
enum class ProgressForm { Auto, Json, None };

// The options that every command takes.
struct Settings {
    ColorUse color = ColorUse::Auto;
    ProgressForm progress = ProgressForm::Auto;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    int timeoutSeconds = 60;
    bool timeoutGiven = false;  // else it is the default
};

// One command line, split up.
class Invocation {
 public:
    const Settings& Global() const { return _settings; }
    void SetGlobal(const Settings& settings) { _settings = settings; }

    // By the argument's name or the option's key.
    bool Has(std::string_view key) const { return _values.find(key) != _values.end(); }
    // The value, or the empty text if it was not given.
    std::string Text(std::string_view key) const;
    // Every value of a repeatable option or argument.
    std::vector<std::string> Texts(std::string_view key) const;

    void Add(const std::string& key, const std::string& value) { _values[key].push_back(value); }

    // With --verbose, tells on standard error: "verbose: ...".
    void Trace(const std::string& text) const;

 private:
    Settings _settings;
    std::map<std::string, std::vector<std::string>, std::less<>> _values;
};

// Writes what it found or did into the report. A failure leaves as an exception, of whatever class.
using CommandFunction = ExitCode (*)(const Invocation& invocation, Report& report);

struct Command {
    std::string name;         // "directory user add"
    std::string summary;      // one line, no full stop
    std::string description;  // paragraphs
    std::vector<Argument> arguments = {};
    std::vector<Option> options = {};
    std::vector<Example> examples = {};
    std::vector<ExitCode> exitCodes = {};  // besides Ok, Failure and Usage, which every command has
    std::string alternative = {};          // key of an option that makes the required arguments and options needless
    bool changes = false;                  // changes something: --quiet leaves out its text
    bool needsRoot = false;                // refused early for anyone else, before a password is asked for
    bool signedWords = false;  // words such as -sshd are arguments, unless they are options of every command
    CommandFunction run = nullptr;
};

// A first part that commands share: "directory user".
struct CommandGroup {
    std::string name;
    std::string summary;
    std::string description = {};
    // The command that is meant where a word that begins with + or - stands in a command's place: "smartcard +sshd".
    std::string signedCommand = {};
};

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMAND_H_
