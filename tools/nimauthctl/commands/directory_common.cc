#include "tools/nimauthctl/commands/directory_common.h"

#include <string_view>

namespace nimbrel::nimauthctl {
namespace {

std::string_view DirectionWord(embedded::TrustDirection direction) {
    switch (direction) {
        case embedded::TrustDirection::Inbound:
            return "inbound";
        case embedded::TrustDirection::Outbound:
            return "outbound";
        case embedded::TrustDirection::Bidirectional:
            return "bidirectional";
    }
    return "unknown";
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) joined += (joined.empty() ? "" : ",") + text;
    return joined;
}

}  // namespace

const Argument kDomainArgument = {.name = "DOMAIN", .help = "the domain's DNS or NetBIOS name"};
const Argument kOptionalDomainArgument = {.name = "DOMAIN", .help = "only this domain", .optional = true};

embedded::Directory OpenDirectory() { return embedded::Directory::Open(); }

void AddDomainRow(const embedded::DomainInfo& domain, Report& report) {
    report.AddRow("domain", "domains", domain.dnsName).Text("netbios", domain.netbiosName).Text("sid", domain.sid);
}

void AddUserRow(const embedded::UserInfo& user, Report& report) {
    report.AddRow("user", "users", user.name)
        .Text("domain", user.domain)
        .Flag("may-join", user.flags.mayJoin)
        .Flag("disabled", user.flags.disabled)
        .Flag("locked", user.flags.locked)
        .Flag("expired", user.flags.expired)
        .Flag("password-expired", user.flags.passwordExpired)
        .Flag("must-change-password", user.flags.mustChangePassword)
        .Text("delegated", Joined(user.delegatedUnits));
}

void AddUnitRow(const embedded::OrganizationalUnitInfo& unit, Report& report) {
    report.AddRow("organizational unit", "organizational units", unit.path)
        .Text("domain", unit.domain)
        .Text("dn", unit.distinguishedName);
}

void AddComputerRow(const embedded::ComputerInfo& computer, Report& report) {
    report.AddRow("computer", "computers", computer.name)
        .Text("domain", computer.domain)
        .Flag("enabled", computer.enabled)
        .Flag("staged", computer.preStaged)
        .Number("key-version", computer.keyVersion)
        .Text("ou", computer.path)
        .Text("dn", computer.distinguishedName)
        .Text("principal", computer.hostPrincipal);
}

void AddTrustRow(const embedded::TrustInfo& trust, Report& report) {
    Row& row = report.AddRow("trust", "trusts", trust.partnerDnsName)
                   .Text("domain", trust.domain)
                   .Text("netbios", trust.partnerNetbiosName)
                   .Text("direction", DirectionWord(trust.direction));
    if (trust.relationship) row.Number("relationship", *trust.relationship);
}

void AddControllerRow(const embedded::ControllerInfo& controller, Report& report) {
    report.AddRow("controller", "controllers", controller.name)
        .Text("domain", controller.domain)
        .Flag("reachable", controller.reachable)
        .Number("priority", controller.priority);
}

void AddRehearsalRow(const embedded::RehearsalInfo& rehearsal, Report& report) {
    Row& row =
        report.AddRow("rehearsal", "rehearsals", rehearsal.operation).Number("delay-ms", rehearsal.delayMilliseconds);
    if (rehearsal.status) row.Number("status", *rehearsal.status);
    if (rehearsal.value) row.Number("value", *rehearsal.value);
    if (rehearsal.remaining) row.Number("calls-left", *rehearsal.remaining);
}

std::string Describe(const std::string& what) {
    return what +
           "\n\nThe embedded directory is a file on this host that the provider 'embedded' answers from: for "
           "evaluation, for air-gapped laboratories, and to rehearse an agent. It is not a real domain.";
}

std::vector<ExitCode> ChangeExitCodes() { return {ExitCode::OtherState, ExitCode::Permission}; }

}  // namespace nimbrel::nimauthctl
