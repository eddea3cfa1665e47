// nimauthctl directory trust

#include <array>
#include <limits>
#include <utility>

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/directory_common.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"

namespace nimbrel::nimauthctl {
namespace {

using embedded::TrustDirection;

TrustDirection ParseDirection(const std::string& text) {
    constexpr std::array<std::pair<std::string_view, TrustDirection>, 3> kDirections = {
        {{"inbound", TrustDirection::Inbound},
         {"outbound", TrustDirection::Outbound},
         {"bidirectional", TrustDirection::Bidirectional}}};
    for (const auto& [word, direction] : kDirections) {
        if (word == text) return direction;
    }
    throw UsageError("--direction: '" + text + "' is not inbound, outbound or bidirectional");
}

ExitCode Add(const Invocation& invocation, Report& report) {
    using Limits = std::numeric_limits<std::int32_t>;
    embedded::TrustInfo trust;
    trust.domain = invocation.Text("DOMAIN");
    trust.partnerDnsName = invocation.Text("PARTNER");
    trust.partnerNetbiosName = invocation.Text("netbios");
    if (invocation.Has("direction")) trust.direction = ParseDirection(invocation.Text("direction"));
    if (invocation.Has("relationship")) {
        trust.relationship = static_cast<std::int32_t>(
            ParseInteger("--relationship", invocation.Text("relationship"), Limits::min(), Limits::max()));
    }
    embedded::Directory directory = OpenDirectory();
    directory.AddTrust(trust);
    for (const embedded::TrustInfo& added : directory.ListTrusts(trust.domain)) {
        if (SameName(added.partnerDnsName, trust.partnerDnsName)) AddTrustRow(added, report);
    }
    return ExitCode::Ok;
}

ExitCode Remove(const Invocation& invocation, Report& report) {
    OpenDirectory().RemoveTrust(invocation.Text("DOMAIN"), invocation.Text("PARTNER"));
    report.Text("removed trust", invocation.Text("PARTNER"));
    return ExitCode::Ok;
}

ExitCode List(const Invocation& invocation, Report& report) {
    report.List("trust", "trusts");
    for (const auto& trust : OpenDirectory().ListTrusts(invocation.Text("DOMAIN"))) AddTrustRow(trust, report);
    return ExitCode::Ok;
}

const Argument kPartner = {.name = "PARTNER", .help = "the trusted or trusting domain; it need not exist here"};

}  // namespace

Command DirectoryTrustAddCommand() {
    return {.name = "directory trust add",
            .summary = "add a trust to a domain of the embedded directory",
            .description = Describe("Adds a trust between the domain and a partner, as the host will see it."),
            .arguments = {kDomainArgument, kPartner},
            .options = {{.flags = "--netbios", .value = "NAME", .help = "the partner's NetBIOS name"},
                        {.flags = "--direction",
                         .value = "DIRECTION",
                         .help = "outbound: the partner's users can log in here; inbound: the other way round; "
                                 "bidirectional, unless given"},
                        {.flags = "--relationship",
                         .value = "N",
                         .help = "the number that the host is told for the partner, instead of the direction's own"}},
            .examples = {{"nimauthctl directory trust add corp.test trust.test", "trust in both directions"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Add};
}

Command DirectoryTrustRemoveCommand() {
    return {.name = "directory trust remove",
            .summary = "remove a trust from a domain of the embedded directory",
            .description = Describe("Removes the trust to the partner."),
            .arguments = {kDomainArgument, kPartner},
            .examples = {{"nimauthctl directory trust remove corp.test trust.test", "trust no longer"}},
            .exitCodes = ChangeExitCodes(),
            .changes = true,
            .run = Remove};
}

Command DirectoryTrustListCommand() {
    return {.name = "directory trust list",
            .summary = "list the trusts of the embedded directory",
            .description = Describe("Lists the trusts with their direction and relationship."),
            .arguments = {kOptionalDomainArgument},
            .examples = {{"nimauthctl directory trust list", "the trusts of every domain"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

}  // namespace nimbrel::nimauthctl
