// nimauthctl trusts

#include <string>

#include "authentication/configuration.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/trust_report.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kTrustedDomains[] = "trusted domains";

std::string ConfiguredProvider() {
    const authentication::ProviderConfiguration settings;
    return settings["provider"];
}

ExitCode ShowTrusts(const Invocation& invocation, Report& report) {
    const StorePointer store = OpenStore(invocation);
    AnswerLog log(invocation.Global());
    TrustReport trusts(store, ConfiguredProvider(), invocation, log, report);
    const auto configuration = AskConfiguration(*store, invocation);
    const std::string& domain = configuration.value.DomainDNSName();
    log.Note("membership", configuration.stale);
    report.TextOrNone("domain", domain);
    if (configuration.stale) report.MarkStale("domain");
    TryPart(kTrustedDomains, report, [&] { trusts.ShowTrustedDomains(!configuration.stale && !domain.empty()); });
    TryPart("trust state", report, [&] { trusts.ShowTrustState(); });
    if (!domain.empty()) TryPart("own relationship", report, [&] { trusts.ShowOwnRelationship(domain); });
    log.Show(report);
    return ResultOf(report);
}

}  // namespace

Command TrustsCommand() {
    return {.name = "trusts",
            .summary = "show the trust state and the relationship to each trusted domain",
            .description =
                "Shows how the domain trusts this host, and each domain whose users may log in here, or at which this "
                "host's users may, with the relationship in words. A host that is not joined trusts none; that is no "
                "failure. At the end stand the age of each answer and whether a time-out made it stale.",
            .examples = {{"nimauthctl trusts", "whose users can log in here?"}},
            .exitCodes = {ExitCode::Permission, ExitCode::Stale, ExitCode::Authentication, ExitCode::Network},
            .run = ShowTrusts};
}

}  // namespace nimbrel::nimauthctl
