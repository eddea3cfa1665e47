#include "record.h"

#include <sstream>
#include <string_view>

#include "names.h"

namespace nimbrel::ad::logins {
namespace {

constexpr char kHeading[] =
    "# Written by nimauth: what was set up for log-ins of domain users, so that a leave can take it away.\n";

void Take(std::string_view key, std::string_view value, DomainLogIns& domain) {
    const auto set = [&](bool wellFormed, std::string& field) {
        if (wellFormed) field = value;
    };
    if (key == "domain") set(IsDnsName(value), domain.dnsName);
    if (key == "realm") set(IsDnsName(value), domain.realm);
    if (key == "netbios") set(IsNetbiosName(value), domain.netbiosName);
    if (key == "host") set(IsDnsName(value), domain.hostName);
    if (key == "account") set(IsMachineAccount(value), domain.machineAccount);
    if (key == "keytab") set(IsPath(value), domain.keytab);
    if (key == "trusted" && IsDnsName(value)) domain.trustedForests.emplace_back(value);
}

void Take(std::string_view key, std::string_view value, Record& record) {
    if (key == "controller" && IsDnsName(value)) record.controllers.emplace_back(value);
    if (key == "smart-cards" || key == "smart-card") {
        if (!record.smartCardServices) record.smartCardServices.emplace();
        if (key == "smart-card" && IsServiceName(value)) record.smartCardServices->emplace_back(value);
    }
    if (key == "sssd-ran") record.sssdRan = true;
}

bool IsComplete(const DomainLogIns& domain) {
    return !domain.dnsName.empty() && !domain.realm.empty() && !domain.netbiosName.empty() &&
           !domain.hostName.empty() && !domain.machineAccount.empty() && !domain.keytab.empty();
}

void AppendAll(std::string& text, const std::string& key, const std::vector<std::string>& values) {
    for (const auto& value : values) text += key + ' ' + value + '\n';
}

std::string Format(const DomainLogIns& domain) {
    std::string text = "domain " + domain.dnsName + "\nrealm " + domain.realm + "\nnetbios " + domain.netbiosName +
                       "\nhost " + domain.hostName + "\naccount " + domain.machineAccount + "\nkeytab " +
                       domain.keytab + '\n';
    AppendAll(text, "trusted", domain.trustedForests);
    return text;
}

}  // namespace

Record ParseRecord(const std::string& text) {
    Record record;
    DomainLogIns domain;
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(lines, line);) {
        const auto blank = line.find(' ');
        const std::string key = line.substr(0, blank);
        const std::string value = blank == std::string::npos ? "" : line.substr(blank + 1);
        Take(key, value, domain);
        Take(key, value, record);
    }
    if (IsComplete(domain)) record.domain = domain;
    return record;
}

std::string FormatRecord(const Record& record) {
    std::string text = kHeading;
    if (record.domain) text += Format(*record.domain);
    AppendAll(text, "controller", record.controllers);
    if (record.smartCardServices) {
        text += "smart-cards set\n";
        AppendAll(text, "smart-card", *record.smartCardServices);
    }
    if (record.sssdRan) text += "sssd-ran\n";
    return text;
}

}  // namespace nimbrel::ad::logins
