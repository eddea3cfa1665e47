#include "tools/nimauthctl/command_table.h"

#include <algorithm>

#include "tools/nimauthctl/commands/commands.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kEmbedded[] =
    "The embedded directory is a file on this host, /var/lib/nimbrel/directory.db. It answers the configured provider "
    "'embedded' as a domain would, for evaluation, for air-gapped laboratories, and to rehearse how an agent takes a "
    "slow or failing domain. It is not a real domain: nobody can log in against it from the network, and whoever can "
    "write the file administers it.";

constexpr char kLogins[] =
    "Turns logins of directory users on and off in the host's PAM files and nsswitch.conf. Every change is previewed "
    "as a diff, tried on a copy, made for all files or none, written to a journal, and taken back by itself unless it "
    "is confirmed, so that nobody is locked out.";

std::vector<Command> MakeCommands() {
    return {
        CheckCommand(),
        JoinCommand(),
        LeaveCommand(),
        StatusCommand(),
        TrustsCommand(),
        ControllerListCommand(),
        ControllerPreferCommand(),
        ControllerAnyCommand(),
        UserCanonicalCommand(),
        HostPrincipalCommand(),
        SmartCardListCommand(),
        SmartCardSetCommand(),
        SmartCardChangeCommand(),
        SmartCardDecideCommand(),
        ExplainCommand(),
        StoreListCommand(),
        StoreShowCommand(),
        StoreSetCommand(),
        ConfigShowCommand(),
        OptionListCommand(),
        OptionGetCommand(),
        OptionSetCommand(),
        LoginsShowCommand(),
        LoginsEnableCommand(),
        LoginsDisableCommand(),
        LoginsConfirmCommand(),
        LoginsUndoCommand(),
        LoginsHistoryCommand(),
        ProxyDomainCommand(),
        ProxyCertImportCommand(),
        ProxyCertShowCommand(),
        DirectoryShowCommand(),
        DirectoryDomainAddCommand(),
        DirectoryDomainRemoveCommand(),
        DirectoryDomainListCommand(),
        DirectoryUserAddCommand(),
        DirectoryUserSetCommand(),
        DirectoryUserRemoveCommand(),
        DirectoryUserListCommand(),
        DirectoryUnitAddCommand(),
        DirectoryUnitRemoveCommand(),
        DirectoryUnitListCommand(),
        DirectoryComputerStageCommand(),
        DirectoryComputerEnableCommand(),
        DirectoryComputerDisableCommand(),
        DirectoryComputerResetCommand(),
        DirectoryComputerRemoveCommand(),
        DirectoryComputerListCommand(),
        DirectoryTrustAddCommand(),
        DirectoryTrustRemoveCommand(),
        DirectoryTrustListCommand(),
        DirectoryControllerAddCommand(),
        DirectoryControllerSetCommand(),
        DirectoryControllerRemoveCommand(),
        DirectoryControllerListCommand(),
        DirectoryRehearseCommand(),
    };
}

template <typename Entry>
const Entry* Find(const std::vector<Entry>& entries, std::string_view name) {
    const auto found =
        std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) { return entry.name == name; });
    return found == entries.end() ? nullptr : &*found;
}

std::string Bare(const Option& option) {
    const std::string first = option.flags.substr(0, option.flags.find(','));
    return option.value.empty() ? first : first + ' ' + option.value;
}

std::string Usage(const Option& option) {
    return (option.required ? Bare(option) : '[' + Bare(option) + ']') + (option.repeatable ? "..." : "");
}

std::string Usage(const Argument& argument) {
    return (argument.optional ? '[' + argument.name + ']' : argument.name) + (argument.repeatable ? "..." : "");
}

// " {-U USER DOMAIN | --proxy ADDRESS} [--if-needed]": either what is required, or the option in its place.
std::string SynopsisOfAlternatives(const Command& command) {
    std::string required;
    std::string alternative;
    std::string others;
    for (const Option& option : command.options) {
        if (option.Key() == command.alternative) {
            alternative = Bare(option);
        } else {
            (option.required ? required : others) += ' ' + Usage(option);
        }
    }
    for (const Argument& argument : command.arguments) {
        (argument.optional ? others : required) += ' ' + Usage(argument);
    }
    return " {" + required.substr(1) + " | " + alternative + '}' + others;
}

}  // namespace

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = MakeCommands();
    return commands;
}

const std::vector<CommandGroup>& CommandGroups() {
    static const std::vector<CommandGroup> groups = {
        {"dc", "the domain controllers that the host asks"},
        {"user", "users as the directory knows them"},
        {"host", "this host as the directory knows it"},
        {"smartcard", "the services that take smart cards", "", "smartcard change"},
        {"store", "which authentication store the host uses"},
        {"config", "where the settings come from"},
        {"option", "the host's advanced options"},
        {"logins", "directory logins: the host's PAM files and name services", kLogins},
        {"proxy", "the authentication proxy that a host can join through"},
        {"proxy cert", "the certificate by which the host knows the proxy"},
        {"directory", "the embedded directory: not a real domain, for evaluation and rehearsals", kEmbedded},
        {"directory domain", "domains of the embedded directory", kEmbedded},
        {"directory user", "users of the embedded directory", kEmbedded},
        {"directory ou", "organizational units of the embedded directory", kEmbedded},
        {"directory computer", "computer accounts of the embedded directory", kEmbedded},
        {"directory trust", "trusts of the embedded directory's domains", kEmbedded},
        {"directory controller", "domain controllers of the embedded directory", kEmbedded},
    };
    return groups;
}

const std::vector<Option>& GlobalOptions() {
    static const std::vector<Option> options = {
        {.flags = "--json", .help = "show the result, errors too, as one JSON object with \"schema\": 1"},
        {.flags = "--timeout",
         .value = "SECONDS",
         .help = "how long to wait for each answer of the directory, 0 to 86400; 60 unless given"},
        {.flags = "--progress",
         .value = "FORM",
         .help = "how long work tells its steps on standard error: auto (at a terminal), json (JSON lines), none"},
        {.flags = "--color", .value = "WHEN", .help = "auto (at a terminal, unless NO_COLOR is set), always, never"},
        {.flags = "-q,--quiet", .help = "show answers and errors, but no confirmation of a change"},
        {.flags = "-v,--verbose", .help = "tell on standard error what is asked and how long it takes"},
        {.flags = "--version", .help = "show the version"},
        {.flags = "-h,--help", .help = "show this help"},
    };
    return options;
}

const Command* FindCommand(std::string_view name) { return Find(Commands(), name); }
const CommandGroup* FindGroup(std::string_view name) { return Find(CommandGroups(), name); }

std::string Synopsis(const Command& command) {
    std::string text = "nimauthctl " + command.name;
    if (!command.alternative.empty()) return text + SynopsisOfAlternatives(command);
    for (const Option& option : command.options) text += ' ' + Usage(option);
    for (const Argument& argument : command.arguments) text += ' ' + Usage(argument);
    return text;
}

std::string ShownFlags(const Option& option) {
    std::string flags = option.flags;
    if (const std::size_t comma = flags.find(','); comma != std::string::npos) flags.insert(comma + 1, " ");
    return flags;
}

std::string ShownHelp(const Option& option) { return option.help + (option.repeatable ? "; may be repeated" : ""); }

std::vector<std::string> Paragraphs(const std::string& text) {
    std::vector<std::string> paragraphs;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find("\n\n", begin), text.size());
        paragraphs.push_back(text.substr(begin, end - begin));
        begin = std::min(end + 2, text.size());
    }
    return paragraphs;
}

}  // namespace nimbrel::nimauthctl
