#include "tools/nimauthctl/help.h"

#include <sstream>
#include <string_view>
#include <vector>

#include "tools/nimauthctl/command_table.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr std::size_t kWidth = 80;
constexpr std::size_t kHelpColumn = 26;
constexpr std::size_t kCommentColumn = 46;

// Words put into lines; each line but the first begins with `indent` blanks, the first with none.
std::string Fold(const std::string& text, std::size_t indent) {
    std::istringstream words(text);
    std::string folded;
    std::size_t column = indent;
    for (std::string word; words >> word;) {
        if (column > indent && column + 1 + word.size() > kWidth) {
            folded += '\n' + std::string(indent, ' ');
            column = indent;
        } else if (column > indent) {
            folded += ' ';
            ++column;
        }
        folded += word;
        column += word.size();
    }
    return folded;
}

std::string FoldParagraphs(const std::string& text) {
    std::string folded;
    for (const std::string& paragraph : Paragraphs(text)) {
        folded += (folded.empty() ? "" : "\n") + Fold(paragraph, 0) + '\n';
    }
    return folded;
}

// "  term    explanation", the explanation on a line of its own below a long term.
std::string Item(const std::string& term, const std::string& help) {
    std::string line = "  " + term;
    if (line.size() + 2 > kHelpColumn) {
        line += '\n' + std::string(kHelpColumn, ' ');
    } else {
        line.resize(kHelpColumn, ' ');
    }
    return line + Fold(help, kHelpColumn) + '\n';
}

std::string Term(const Option& option) { return ShownFlags(option) + (option.value.empty() ? "" : ' ' + option.value); }

std::string OptionItems(const std::vector<Option>& options) {
    std::string text;
    for (const Option& option : options) text += Item(Term(option), ShownHelp(option));
    return text;
}

std::string GlobalOptionsSection() { return "\nOptions of every command:\n" + OptionItems(GlobalOptions()); }

std::string ArgumentsSection(const Command& command) {
    if (command.arguments.empty()) return "";
    std::string text = "\nArguments:\n";
    for (const Argument& argument : command.arguments) text += Item(argument.name, argument.help);
    return text;
}

std::string ExamplesSection(const Command& command) {
    std::string text = "\nExamples:\n";
    for (const Example& example : command.examples) {
        text += "  # " + Fold(example.comment, 4) + "\n  " + example.commandLine + '\n';
    }
    return text;
}

std::string ExitCodesSection(const Command& command) {
    std::vector<ExitCode> codes = {ExitCode::Ok, ExitCode::Failure, ExitCode::Usage};
    codes.insert(codes.end(), command.exitCodes.begin(), command.exitCodes.end());
    std::string text = "\nExit status:\n";
    for (const ExitCode code : codes) text += Item(std::to_string(static_cast<int>(code)), Meaning(code));
    return text;
}

struct Step {
    std::string_view commandLine;
    std::string_view comment;
};

// The way of a host from its installation to log-ins of the directory's users.
std::string FirstSteps() {
    constexpr Step kSteps[] = {{"nimauthctl check corp.test", "can it join? changes nothing"},
                               {"nimauthctl store set \"Active Directory\"", "take users from the directory"},
                               {"nimauthctl join corp.test -U administrator", "asks for the password"},
                               {"nimauthctl status", "how does it stand?"},
                               {"nimauthctl logins enable --dry-run", "look; then do it, and confirm"}};
    std::string text = "\nFirst steps, as root:\n";
    for (const Step& step : kSteps) {
        std::string line = "  " + std::string(step.commandLine);
        line.resize(kCommentColumn, ' ');
        text += line + "# " + std::string(step.comment) + '\n';
    }
    return text + "No domain at hand? A file on this host will do: 'nimauthctl directory --help'.\n";
}

std::string CommandItems(const std::string& prefix) {
    std::string text;
    for (const Command& command : Commands()) {
        if (command.name.starts_with(prefix)) text += Item(command.name, command.summary);
    }
    return text;
}

}  // namespace

std::string OverviewHelp() {
    return "Usage: nimauthctl COMMAND [ARGUMENT]... [OPTION]...\n\n" +
           Fold("Lets this host join a directory domain, leave it, and tells how it stands.", 0) + "\n\nCommands:\n" +
           CommandItems("") + GlobalOptionsSection() + FirstSteps() + "\n" +
           Fold("'nimauthctl COMMAND --help' tells more about one command, with examples.", 0) + '\n';
}

std::string GroupHelp(const CommandGroup& group) {
    return "Usage: nimauthctl " + group.name + " COMMAND [ARGUMENT]... [OPTION]...\n\n" +
           FoldParagraphs(group.description.empty() ? group.summary + '.' : group.description) + "\nCommands:\n" +
           CommandItems(group.name + ' ') + GlobalOptionsSection();
}

std::string CommandHelp(const Command& command) {
    return "Usage: " + Fold(Synopsis(command), 7) + "\n\n" + FoldParagraphs(command.description) +
           ArgumentsSection(command) + (command.options.empty() ? "" : "\nOptions:\n" + OptionItems(command.options)) +
           GlobalOptionsSection() + ExamplesSection(command) + ExitCodesSection(command);
}

}  // namespace nimbrel::nimauthctl
