// nimauthctl leave

#include <memory>
#include <string>
#include <utility>

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/interruption.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/progress.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using authentication::ActiveDirectoryStore;

constexpr char kStored[] = "stored settings";

// For the confirmation only: leaving goes on if the answer cannot be had, and then fails or succeeds on its own
// account.
std::string PresentDomain(const ActiveDirectoryStore& store, const Invocation& invocation) {
    try {
        return AskConfiguration(store, invocation).value.DomainDNSName();
    } catch (...) {
        invocation.Trace("the present domain: " + DescribeCurrentException().message);
        return "";
    }
}

void ShowLeave(const std::string& domain, const std::string& stored, Report& report) {
    report.Flag("joined", false);
    report.TextOrNone("left", domain);
    report.Text(kStored, stored);
}

// Carries out one of the two ways to leave. `call` owns what it uses: it goes on after an interruption.
template <typename Call>
void RunLeave(const StorePointer& store, const std::string& domain, const Invocation& invocation, Call call) {
    const auto progress = std::make_shared<Progress>(invocation.Global());
    progress->Step("leave", "leaving " + (domain.empty() ? "the domain" : Printable(domain)));
    try {
        RunLong(*progress, std::move(call));
    } catch (const Interrupted& interruption) {
        TellInterruption(interruption, store, *progress, invocation);
    }
}

void LeaveAsUser(const StorePointer& store, const std::string& domain, const Invocation& invocation) {
    const std::string user = invocation.Text("user");
    auto password = std::make_shared<Password>();
    ReadPassword(*password, user, invocation);
    RunLeave(store, domain, invocation, [store, user, password = std::move(password)]() mutable {
        const std::shared_ptr<Password> held = std::move(password);  // wiped at the end of the call
        store->PartDomain(Credentials{user.c_str(), held->Text()});
        return true;
    });
}

ExitCode LeaveAlone(const StorePointer& store, const std::string& domain, const Invocation& invocation,
                    Report& report) {
    try {
        RunLeave(store, domain, invocation, [store] {
            store->PartDomain();
            return true;
        });
    } catch (const CarriedFailure& error) {
        if (error.Described().exception != "ConfigStoreException") throw;
        ShowLeave(domain, "kept", report);
        report.Note("the host has left; only the stored settings could not be removed");
        report.AddFailure(error.Described());
        return error.Described().exitCode;
    }
    ShowLeave(domain, "removed", report);
    report.Note("the computer account stays in the domain; its administrator may delete it");
    return ExitCode::Ok;
}

ExitCode Leave(const Invocation& invocation, Report& report) {
    const bool asUser = invocation.Has("user");
    if (!asUser && (invocation.Has("password-stdin") || invocation.Has("password-fd"))) {
        throw UsageError("a password without -U USER is of no use", "add -U USER, or leave without credentials");
    }
    const StorePointer store = OpenStore(invocation);
    const std::string domain = PresentDomain(*store, invocation);
    if (!asUser) return LeaveAlone(store, domain, invocation, report);
    LeaveAsUser(store, domain, invocation);
    ShowLeave(domain, "kept", report);
    report.Note("the stored domain settings stay behind until the next join replaces them");
    report.Note(
        "a computer account that is not this host's any more stays in the domain, because another host has joined with "
        "it or it was reset: the system log tells; the next join resets it, or its administrator may delete it");
    return ExitCode::Ok;
}

std::vector<Option> LeaveOptions() {
    std::vector<Option> options = {
        {.flags = "-U,--user",
         .value = "USER",
         .help = "have this user delete the computer account in the directory, unless it is another host's by now"}};
    for (Option& option : PasswordOptions()) options.push_back(std::move(option));
    return options;
}

}  // namespace

Command LeaveCommand() {
    return {
        .name = "leave",
        .summary = "leave the directory domain",
        .description =
            "Without -U the host only forgets its domain: its computer account stays in the directory, and the stored "
            "domain settings are removed.\n\n"
            "With -U the directory is asked to take the host out with that user's rights: the computer account is "
            "deleted, or disabled where the user may not delete it. It stays if it is not this host's any more, "
            "because another host has joined under the name or the account was reset (trust state 3); the system log "
            "tells. The stored domain settings stay behind, as 'nimauthctl status' shows, until the next join "
            "replaces them.",
        .options = LeaveOptions(),
        .examples = {{"nimauthctl leave", "forget the domain"},
                     {"nimauthctl leave -U administrator", "have this host's computer account deleted too"}},
        .exitCodes = {ExitCode::OtherState, ExitCode::NotJoined, ExitCode::Permission, ExitCode::Authentication,
                      ExitCode::Network},
        .changes = true,
        .needsRoot = true,
        .run = Leave};
}

}  // namespace nimbrel::nimauthctl
