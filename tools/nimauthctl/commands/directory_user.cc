// nimauthctl directory user

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/directory_common.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"

namespace nimbrel::nimauthctl {
namespace {

struct FlagOption {
    const char* key;
    bool embedded::UserFlags::*flag;
    const char* help;
};

constexpr std::array<FlagOption, 6> kFlags = {{
    {"may-join", &embedded::UserFlags::mayJoin, "may create, reset and delete every computer account"},
    {"disabled", &embedded::UserFlags::disabled, "log-ons fail with 1331"},
    {"locked", &embedded::UserFlags::locked, "log-ons fail with 1909, whatever the password"},
    {"expired", &embedded::UserFlags::expired, "the account has expired: log-ons fail with 1793"},
    {"password-expired", &embedded::UserFlags::passwordExpired, "log-ons fail with 1330"},
    {"must-change-password", &embedded::UserFlags::mustChangePassword, "log-ons fail with 1907"},
}};

embedded::UserInfo FindUser(const embedded::Directory& directory, const Invocation& invocation) {
    for (const embedded::UserInfo& user : directory.ListUsers(invocation.Text("DOMAIN"))) {
        if (SameName(user.name, invocation.Text("NAME"))) return user;
    }
    throw embedded::DirectoryError(embedded::kStatusNoSuchAccount, "there is no user '" + invocation.Text("NAME") +
                                                                       "' in '" + invocation.Text("DOMAIN") + "'");
}

ExitCode Add(const Invocation& invocation, Report& report) {
    embedded::Directory directory = OpenDirectory();
    embedded::UserFlags flags;
    for (const FlagOption& option : kFlags) flags.*option.flag = invocation.Has(option.key);
    Password password;
    ReadPassword(password, invocation.Text("NAME"), invocation, true);
    directory.AddUser(invocation.Text("DOMAIN"), invocation.Text("NAME"), password.View(), flags,
                      invocation.Texts("delegate"));
    AddUserRow(FindUser(directory, invocation), report);
    return ExitCode::Ok;
}

bool ChangesPassword(const Invocation& invocation) {
    return invocation.Has("new-password") || invocation.Has("password-stdin") || invocation.Has("password-fd");
}

embedded::UserFlags ChangedFlags(embedded::UserFlags flags, const Invocation& invocation) {
    for (const FlagOption& option : kFlags) {
        if (!invocation.Has(option.key)) continue;
        flags.*option.flag = ParseYesNo(std::string("--") + option.key, invocation.Text(option.key));
    }
    return flags;
}

// Every word is checked before the first change, but for the units, which the directory knows: they come first.
ExitCode Set(const Invocation& invocation, Report& report) {
    if (invocation.Has("delegate") && invocation.Has("no-delegation")) {
        throw UsageError("--delegate and --no-delegation exclude each other");
    }
    embedded::Directory directory = OpenDirectory();
    const embedded::UserInfo user = FindUser(directory, invocation);
    const embedded::UserFlags flags = ChangedFlags(user.flags, invocation);
    std::optional<Password> password;
    if (ChangesPassword(invocation)) ReadPassword(password.emplace(), user.name, invocation, true);
    if (invocation.Has("delegate") || invocation.Has("no-delegation")) {
        directory.SetUserDelegation(user.domain, user.name, invocation.Texts("delegate"));
    }
    if (password) directory.SetUserPassword(user.domain, user.name, password->View());
    directory.SetUserFlags(user.domain, user.name, flags);
    AddUserRow(FindUser(directory, invocation), report);
    return ExitCode::Ok;
}

ExitCode Remove(const Invocation& invocation, Report& report) {
    OpenDirectory().RemoveUser(invocation.Text("DOMAIN"), invocation.Text("NAME"));
    report.Text("removed user", invocation.Text("NAME"));
    return ExitCode::Ok;
}

ExitCode List(const Invocation& invocation, Report& report) {
    report.List("user", "users");
    for (const embedded::UserInfo& user : OpenDirectory().ListUsers(invocation.Text("DOMAIN"))) {
        AddUserRow(user, report);
    }
    return ExitCode::Ok;
}

std::vector<Option> FlagOptions(bool withValue) {
    std::vector<Option> options;
    options.reserve(kFlags.size());
    for (const FlagOption& option : kFlags) {
        options.push_back(
            {.flags = std::string("--") + option.key, .value = withValue ? "yes|no" : "", .help = option.help});
    }
    options.push_back({.flags = "--delegate",
                       .value = "OU",
                       .help = "may write the computer accounts in this organizational unit and below",
                       .repeatable = true});
    return options;
}

std::vector<Option> AddOptions() {
    std::vector<Option> options = FlagOptions(false);
    for (Option& option : PasswordOptions()) options.push_back(std::move(option));
    return options;
}

std::vector<Option> SetOptions() {
    std::vector<Option> options = FlagOptions(true);
    options.push_back({.flags = "--no-delegation", .help = "take every delegation away"});
    options.push_back({.flags = "--new-password", .help = "ask for a new password"});
    for (Option& option : PasswordOptions()) options.push_back(std::move(option));
    return options;
}

const Argument kName = {.name = "NAME", .help = "the user's name"};

}  // namespace

Command DirectoryUserAddCommand() {
    return {.name = "directory user add",
            .summary = "add a user to the embedded directory",
            .description = Describe("Adds a user; the password is asked for twice without echo, or read as the options "
                                    "say. Only a hash of it is kept."),
            .arguments = {kDomainArgument, kName},
            .options = AddOptions(),
            .examples = {{"nimauthctl directory user add corp.test administrator --may-join", "one who may join hosts"},
                         {"nimauthctl directory user add corp.test lab --delegate Hosts/Lab",
                          "one who may join hosts in one unit only"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Add};
}

Command DirectoryUserSetCommand() {
    return {.name = "directory user set",
            .summary = "change a user of the embedded directory",
            .description = Describe("Changes what is named, and nothing else. Delegations given replace the old ones."),
            .arguments = {kDomainArgument, kName},
            .options = SetOptions(),
            .examples = {{"nimauthctl directory user set corp.test alice --locked yes", "rehearse a locked account"},
                         {"nimauthctl directory user set corp.test alice --new-password", "give a new password"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Set};
}

Command DirectoryUserRemoveCommand() {
    return {.name = "directory user remove",
            .summary = "remove a user from the embedded directory",
            .description = Describe("Removes the user."),
            .arguments = {kDomainArgument, kName},
            .examples = {{"nimauthctl directory user remove corp.test alice", "alice has left"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Remove};
}

Command DirectoryUserListCommand() {
    return {.name = "directory user list",
            .summary = "list the users of the embedded directory",
            .description = Describe("Lists the users with their flags and delegations."),
            .arguments = {kOptionalDomainArgument},
            .examples = {{"nimauthctl directory user list corp.test", "the users of one domain"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

}  // namespace nimbrel::nimauthctl
