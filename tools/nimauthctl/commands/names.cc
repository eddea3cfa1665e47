// nimauthctl user canonical, nimauthctl host principal: names as the directory knows them.

#include <string>

#include "tools/nimauthctl/commands/ask_within.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

// One name that fails does not take the others along.
void AddCanonicalName(const StorePointer& store, const std::string& name, const Invocation& invocation,
                      Report& report) {
    Row& row = report.AddRow("user", "users", name);
    try {
        const auto canonical = AskWithinTraced(invocation, "the canonical name of " + name,
                                               [store, name] { return store->ConvertCanonicalUsername(name); });
        if (canonical) {
            row.Text("canonical", *canonical);
        } else {
            row.None("canonical").Stale();
        }
    } catch (...) {
        row.None("canonical");
        report.AddFailure(DescribeCurrentException());
    }
}

ExitCode Canonical(const Invocation& invocation, Report& report) {
    const StorePointer store = OpenStore(invocation);
    for (const std::string& name : invocation.Texts("NAME")) AddCanonicalName(store, name, invocation, report);
    return ResultOf(report);
}

ExitCode Principal(const Invocation& invocation, Report& report) {
    const StorePointer store = OpenStore(invocation);
    const std::string domain = invocation.Text("DOMAIN");
    const auto principal = AskWithinTraced(invocation, "the host principal",
                                           [store, domain] { return store->GetHostPrincipalForDomain(domain); });
    report.Text("domain", domain);
    report.TextOrNone("host principal", principal.value_or(""));
    if (!principal) report.MarkStale("host principal");
    return ResultOf(report);
}

}  // namespace

Command UserCanonicalCommand() {
    return {.name = "user canonical",
            .summary = "show how the directory spells user names",
            .description =
                "Asks the directory for the canonical form of each name, the one to write into permissions and "
                "scripts. With a provider that cannot tell, a name is its own canonical form. A name that fails is "
                "shown with 'none'; the others are shown all the same.",
            .arguments = {{.name = "NAME",
                           .help = "a user as typed: alice, alice@corp.test, 'CORP\\alice'",
                           .repeatable = true}},
            .examples = {{"nimauthctl user canonical 'CORP\\alice' bob", "two users"}},
            .exitCodes = {ExitCode::NotJoined, ExitCode::Permission, ExitCode::Stale, ExitCode::Authentication,
                          ExitCode::Network},
            .run = Canonical};
}

Command HostPrincipalCommand() {
    return {.name = "host principal",
            .summary = "show the host's Kerberos principal towards a domain",
            .description =
                "Shows the principal by which users and services of the domain know this host. It is none if the "
                "provider cannot tell.",
            .arguments = {{"DOMAIN", "the joined domain or one that it trusts"}},
            .examples = {{"nimauthctl host principal corp.test", "the name to put into a service's keytab"}},
            .exitCodes = {ExitCode::Permission, ExitCode::Stale, ExitCode::Authentication, ExitCode::Network},
            .run = Principal};
}

}  // namespace nimbrel::nimauthctl
