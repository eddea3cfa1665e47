// nimauthctl smartcard: for which services a user may log in with a smart card.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tools/nimauthctl/commands/ask_within.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using Services = std::vector<std::string>;

constexpr char kService[] = "smart-card service";
constexpr char kServices[] = "smart-card services";

std::optional<Services> PresentServices(const StorePointer& store, const Invocation& invocation) {
    return AskWithinTraced(invocation, "the smart-card services",
                           [store] { return store->GetSmartCardEnabledServices(); });
}

void ShowServices(const std::optional<Services>& services, Report& report) {
    report.List(kService, kServices);
    if (!services) return report.MarkStale(kServices);
    for (const std::string& service : *services) report.AddRow(kService, kServices, service);
}

ExitCode List(const Invocation& invocation, Report& report) {
    ShowServices(PresentServices(OpenStore(invocation), invocation), report);
    return ResultOf(report);
}

ExitCode Store(const StorePointer& store, const Services& services, const Invocation& invocation, Report& report) {
    const auto done = AskWithinTraced(invocation, "the change of the smart-card services", [store, services] {
        store->SetSmartCardEnabledServices(services);
        return true;
    });
    ShowServices(done ? std::optional(services) : std::nullopt, report);
    if (!done) report.Note("the directory did not confirm the change in time; see 'nimauthctl smartcard list' later");
    return ResultOf(report);
}

ExitCode Set(const Invocation& invocation, Report& report) {
    const Services services = invocation.Texts("SERVICE");
    if (invocation.Has("none") == !services.empty()) {
        throw UsageError("give the services' names, or --none alone", "see 'nimauthctl smartcard set --help'");
    }
    return Store(OpenStore(invocation), services, invocation, report);
}

// Once in or out, in the order given; a service that is there already stays where it is.
Services Changed(Services services, const Services& changes) {
    for (const std::string& change : changes) {
        const std::string name = change.substr(1);
        const auto found = std::find(services.begin(), services.end(), name);
        if (change[0] == '+' && found == services.end()) services.push_back(name);
        if (change[0] == '-') std::erase(services, name);
    }
    return services;
}

void RequireSigns(const Services& changes) {
    for (const std::string& change : changes) {
        if (change.size() < 2 || (change[0] != '+' && change[0] != '-')) {
            throw UsageError("each word must be +SERVICE or -SERVICE", "see 'nimauthctl smartcard change --help'");
        }
    }
}

ExitCode Change(const Invocation& invocation, Report& report) {
    const Services changes = invocation.Texts("+SERVICE|-SERVICE");
    RequireSigns(changes);
    const StorePointer store = OpenStore(invocation);
    const auto present = PresentServices(store, invocation);
    if (!present) {
        ShowServices(present, report);
        report.Note("the present services are not known, so nothing was changed");
        return ExitCode::Stale;
    }
    return Store(store, Changed(*present, changes), invocation, report);
}

// The library decides from its cache, which a new process fills first. A refresh of a host that is no member leaves the
// services out, and does not tell that they could not be read; so they are asked for here.
bool Decide(const StorePointer& store, bool policy, const Services& services) {
    store->GetSmartCardEnabledServices();
    store->UpdateCache(policy);
    if (!authentication::ActiveDirectoryStore::Cache().IsDomainMember()) store->FetchScEnabledSvcs();
    std::vector<const char*> names;
    for (const std::string& service : services) names.push_back(service.c_str());
    return authentication::ActiveDirectoryStore::Cache().IsSmartCardAuthenticationEnabled(names.data(), names.size());
}

ExitCode ShowDecision(const Invocation& invocation, Report& report) {
    const bool policy = !invocation.Has("policy") || ParseYesNo("--policy", invocation.Text("policy"));
    const StorePointer store = OpenStore(invocation);
    const Services services = invocation.Texts("SERVICE");
    const auto enabled = AskWithinTraced(invocation, "the smart-card services",
                                         [store, policy, services] { return Decide(store, policy, services); });
    report.Flag("service policy", policy);
    report.List("service", "services");
    for (const std::string& service : services) report.AddRow("service", "services", service);
    if (enabled) {
        report.Flag("smart-card authentication", *enabled);
    } else {
        report.None("smart-card authentication");
        report.MarkStale("smart-card authentication");
    }
    return ResultOf(report);
}

constexpr char kAbout[] =
    "Smart-card services are the services, by their PAM names, for which a user may log in with a smart card. The list "
    "belongs to the host and is kept by the provider.";

std::vector<ExitCode> QuestionExitCodes() { return {ExitCode::Permission, ExitCode::Stale, ExitCode::Network}; }
std::vector<ExitCode> ChangeExitCodes() {
    return {ExitCode::OtherState, ExitCode::Permission, ExitCode::Stale, ExitCode::Network};
}

const Argument kServiceArgument = {.name = "SERVICE", .help = "a PAM service, sshd", .repeatable = true};

}  // namespace

Command SmartCardListCommand() {
    return {.name = "smartcard list",
            .summary = "list the services that take smart cards",
            .description = kAbout,
            .examples = {{"nimauthctl smartcard list", "which services take a card?"}},
            .exitCodes = QuestionExitCodes(),
            .run = List};
}

Command SmartCardSetCommand() {
    Argument services = kServiceArgument;
    services.optional = true;
    return {.name = "smartcard set",
            .summary = "replace the list of services that take smart cards",
            .description = kAbout,
            .arguments = {services},
            .options = {{.flags = "--none", .help = "no service takes a card"}},
            .examples = {{"nimauthctl smartcard set sshd gdm-smartcard", "these two and no other"},
                         {"nimauthctl smartcard set --none", "none at all"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .needsRoot = true,
            .run = Set};
}

Command SmartCardChangeCommand() {
    return {.name = "smartcard change",
            .summary = "let single services take smart cards, or no longer",
            .description = std::string(kAbout) +
                           "\n\nEach word is a service behind + (takes cards from now on) or - (no longer). The "
                           "command's name may be left out: 'nimauthctl smartcard +sshd -login'. Nothing is changed if "
                           "the present list cannot be read. A service called q, v or h stands behind '--'.",
            .arguments = {{.name = "+SERVICE|-SERVICE", .help = "+sshd or -sshd", .repeatable = true}},
            .examples = {{"nimauthctl smartcard change +sshd", "sshd takes cards too"},
                         {"nimauthctl smartcard change +sshd -login", "sshd in place of login"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .needsRoot = true,
            .signedWords = true,
            .run = Change};
}

Command SmartCardDecideCommand() {
    return {.name = "smartcard decide",
            .summary = "tell whether all of these services take smart cards",
            .description = std::string(kAbout) +
                           "\n\nDecides as the library does for an agent: yes if the smart-card service may run on "
                           "the host (--policy, yes unless given) and every service named is in the list.",
            .arguments = {kServiceArgument},
            .options = {{.flags = "--policy", .value = "yes|no", .help = "whether the host's card service may run"}},
            .examples = {{"nimauthctl smartcard decide sshd login", "may both take cards?"}},
            .exitCodes = QuestionExitCodes(),
            .run = ShowDecision};
}

}  // namespace nimbrel::nimauthctl
