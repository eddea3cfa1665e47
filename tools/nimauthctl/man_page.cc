// nimauthctl(8).

#include <string>
#include <vector>

#include "tools/nimauthctl/command_table.h"
#include "tools/nimauthctl/documents.h"

namespace nimbrel::nimauthctl {
namespace {

// A text that troff shows as it is.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') {
            escaped += "\\e";
        } else if (c == '-') {
            escaped += "\\-";
        } else {
            if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n')) escaped += "\\&";
            escaped += c;
        }
    }
    return escaped;
}

std::string Bold(const std::string& text) { return "\\fB" + Escaped(text) + "\\fR"; }

std::string Description(const std::string& text) {
    std::string shown;
    for (const std::string& paragraph : Paragraphs(text)) shown += ".PP\n" + Escaped(paragraph) + '\n';
    return shown;
}

std::string Item(const std::string& term, const std::string& help) {
    return ".TP\n" + term + '\n' + Escaped(help) + '\n';
}

std::string Term(const Option& option) {
    return Bold(ShownFlags(option)) + (option.value.empty() ? "" : " \\fI" + Escaped(option.value) + "\\fR");
}

std::string OptionItems(const std::vector<Option>& options) {
    std::string text;
    for (const Option& option : options) text += Item(Term(option), ShownHelp(option));
    return text;
}

// What every command may end with stands at the end of the page alone.
std::string OwnExitStatuses(const Command& command) {
    std::string codes;
    for (const ExitCode code : command.exitCodes) {
        codes += (codes.empty() ? "" : ", ") + std::to_string(static_cast<int>(code));
    }
    return codes.empty() ? "" : ".PP\nExit status besides 0, 1 and 2: " + codes + ".\n";
}

std::string CommandSection(const Command& command) {
    std::string text = ".SS " + Escaped(Synopsis(command)) + '\n' + Description(command.description);
    for (const Argument& argument : command.arguments) {
        text += Item("\\fI" + Escaped(argument.name) + "\\fR", argument.help);
    }
    text += OptionItems(command.options) + OwnExitStatuses(command);
    for (const Example& example : command.examples) {
        text += ".PP\nExample (" + Escaped(example.comment) + "):\n.PP\n.nf\n    " + Escaped(example.commandLine) +
                "\n.fi\n";
    }
    return text;
}

std::string ExitStatus() {
    std::string text = ".SH EXIT STATUS\n";
    for (int code = 0; code <= 9; ++code) {
        text += Item(Bold(std::to_string(code)), Meaning(static_cast<ExitCode>(code)));
    }
    return text + ".PP\nA command that a signal interrupts ends by that signal.\n";
}

constexpr char kFiles[] =
    ".SH FILES\n"
    ".TP\n\\fI/etc/nimbrel/nimauth/\\fR\n"
    "the settings: authentication.conf, provider.conf, apxprovider.conf; of the provider 'ad', ad.conf; of the proxy "
    "plug\\-in 'apxhttps', apxhttps.conf\n"
    ".TP\n\\fI/usr/libexec/nimauth/\\fR\nthe directory providers and proxy plug\\-ins\n"
    ".TP\n\\fI/var/lib/nimbrel/\\fR\nthe configuration store, and the files of the provider 'embedded'\n"
    ".TP\n\\fI/var/lib/nimbrel/ad/membership\\fR\nwhat the provider 'ad' remembers of the membership\n"
    ".TP\n\\fI/var/lib/nimbrel/logins/\\fR\nthe journal of 'nimauthctl logins', with the files as they were before\n"
    ".SH SEE ALSO\n\\fBapxd\\fR(8)\n";

}  // namespace

std::string ManPage() {
    std::string text = ".TH NIMAUTHCTL 8 \"\" \"nimauth " NIMAUTHCTL_VERSION
                       "\" \"System administration\"\n"
                       ".SH NAME\nnimauthctl \\- join a directory domain, leave it, and tell how the host stands\n"
                       ".SH SYNOPSIS\n\\fBnimauthctl\\fR \\fICOMMAND\\fR [\\fIARGUMENT\\fR]... [\\fIOPTION\\fR]...\n"
                       ".SH DESCRIPTION\n" +
                       Escaped(
                           "Each command is one capability of the library libnimauth; no daemon is needed. Results "
                           "stand on standard output as lines 'label: value', or with --json as one object; "
                           "failures stand on standard error with their cause and remedy.") +
                       "\n.SH OPTIONS OF EVERY COMMAND\n" + OptionItems(GlobalOptions()) + ".SH COMMANDS\n";
    for (const Command& command : Commands()) text += CommandSection(command);
    return text + ExitStatus() + kFiles;
}

}  // namespace nimbrel::nimauthctl
