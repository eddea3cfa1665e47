// nimauthctl dc: which domain controllers the host asks.

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "tools/nimauthctl/commands/ask_within.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kPreferred[] = "preferred controllers";

Answer<std::deque<std::string>> Preferred(const StorePointer& store, const Invocation& invocation) {
    auto answer = AskConfiguration(*store, invocation);
    return {answer.value.PreferredDomainControllers(), answer.stale};
}

void ShowPreferred(const Answer<std::deque<std::string>>& answer, Report& report) {
    report.List("preferred controller", kPreferred);
    for (const std::string& name : answer.value) report.AddRow("preferred controller", kPreferred, name);
    if (answer.stale) report.MarkStale(kPreferred);
}

ExitCode List(const Invocation& invocation, Report& report) {
    ShowPreferred(Preferred(OpenStore(invocation), invocation), report);
    return ResultOf(report);
}

bool SameNames(const std::deque<std::string>& a, const std::deque<std::string>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), SameName);
}

std::deque<std::string> WantedControllers(const Invocation& invocation) {
    const auto names = invocation.Texts("NAME");
    if (invocation.Has("none") == !names.empty()) {
        throw UsageError("give the controllers' names, or --none alone", "see 'nimauthctl dc prefer --help'");
    }
    return {names.begin(), names.end()};
}

// The status that refuses a name is the one for this host's name; here it is about what was typed.
Failure OfNames(Failure failure) {
    constexpr std::uint64_t kInvalidComputerName = 1210;
    if (failure.code != kInvalidComputerName) return failure;
    failure.cause = "a name that was given cannot be a domain controller's";
    failure.remedy = "give the controllers' full DNS names, as dc1.corp.test";
    failure.exitCode = ExitCode::Usage;
    return failure;
}

// False if there is no answer in time.
bool StorePreferred(const StorePointer& store, const std::deque<std::string>& wanted,
                    const Invocation& invocation) try {
    return AskWithinTraced(invocation, "the change of the preferred controllers",
                           [store, wanted] {
                               store->SetPreferredDomainControllers(wanted);
                               return true;
                           })
        .has_value();
} catch (const CarriedFailure& error) {
    throw CarriedFailure(OfNames(error.Described()));
}

ExitCode Prefer(const Invocation& invocation, Report& report) {
    const auto wanted = WantedControllers(invocation);
    const StorePointer store = OpenStore(invocation);
    if (!StorePreferred(store, wanted, invocation)) {
        report.None(kPreferred);
        report.MarkStale(kPreferred);
        report.Note("the directory did not confirm the change in time; see 'nimauthctl dc list' later");
        return ExitCode::Stale;
    }
    const auto present = Preferred(store, invocation);
    ShowPreferred(present, report);
    if (present.stale || SameNames(present.value, wanted)) return ResultOf(report);
    // The library writes this case to the system log and calls it success.
    throw ToolError(ExitCode::Failure, "the preferred controllers are not what was asked for",
                    "the configured provider does not offer the operation, or keeps a list of its own",
                    "see 'nimauthctl dc list' and the system log; 'provider' is in /etc/nimbrel/nimauth/provider.conf");
}

bool IsKnownNotToBeJoined(const StorePointer& store, const Invocation& invocation) try {
    const auto answer = AskConfiguration(*store, invocation);
    return !answer.stale && answer.value.DomainDNSName().empty();
} catch (...) {
    invocation.Trace("the present domain: " + DescribeCurrentException().message);
    return false;
}

// Unset if there is no answer in time. Without a domain it is the joined one: a host that is in none is told so, in
// place of what the provider makes of a domain without a name.
std::optional<std::string> FindController(const StorePointer& store, const std::string& domain,
                                          const Invocation& invocation) try {
    return AskWithinTraced(invocation, "a domain controller",
                           [store, domain] { return store->GetDomainControllerForDomain(domain); });
} catch (const CarriedFailure&) {
    if (!domain.empty() || !IsKnownNotToBeJoined(store, invocation)) throw;
    throw ToolError(ExitCode::NotJoined, "the host is not joined to a domain", "no domain was given, either",
                    "give a DOMAIN, as in 'nimauthctl dc any corp.test'");
}

ExitCode Any(const Invocation& invocation, Report& report) {
    const StorePointer store = OpenStore(invocation);
    const std::string domain = invocation.Text("DOMAIN");
    const auto controller = FindController(store, domain, invocation);
    report.TextOrNone("domain", domain);
    report.TextOrNone("controller", controller.value_or(""));
    if (!controller) report.MarkStale("controller");
    return ResultOf(report);
}

}  // namespace

Command ControllerListCommand() {
    return {.name = "dc list",
            .summary = "list the preferred domain controllers",
            .description = "Lists the controllers that the host asks first, in their order.",
            .examples = {{"nimauthctl dc list", "which controllers come first?"}},
            .exitCodes = {ExitCode::Permission, ExitCode::Stale, ExitCode::Network},
            .run = List};
}

Command ControllerPreferCommand() {
    return {.name = "dc prefer",
            .summary = "choose the domain controllers that are asked first",
            .description =
                "Replaces the list of preferred controllers. The others of the domain stay in reserve. The list is "
                "read back: a provider that does not take it is a failure.",
            .arguments = {{.name = "NAME",
                           .help = "a controller's full name; the first is asked first",
                           .optional = true,
                           .repeatable = true}},
            .options = {{.flags = "--none", .help = "prefer none: leave the choice to the provider"}},
            .examples = {{"nimauthctl dc prefer dc2.corp.test dc1.corp.test", "the controllers of this site"},
                         {"nimauthctl dc prefer --none", "back to the provider's own choice"}},
            .exitCodes = {ExitCode::OtherState, ExitCode::Permission, ExitCode::Stale, ExitCode::Network},
            .changes = true,
            .needsRoot = true,
            .run = Prefer};
}

Command ControllerAnyCommand() {
    return {.name = "dc any",
            .summary = "find a domain controller that answers",
            .description =
                "Asks the provider for a controller of the domain that can be reached now. It is none if the provider "
                "cannot tell.",
            .arguments = {{.name = "DOMAIN", .help = "the joined domain unless given", .optional = true}},
            .examples = {{"nimauthctl dc any", "which controller would be asked now?"},
                         {"nimauthctl dc any corp.test", "before a join"}},
            .exitCodes = {ExitCode::NotJoined, ExitCode::Permission, ExitCode::Stale, ExitCode::Network},
            .run = Any};
}

}  // namespace nimbrel::nimauthctl
