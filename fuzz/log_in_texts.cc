// The texts around SSSD. Any record of log-ins reads to what may go into SSSD's files, and reads the same once written
// again; SSSD's reader finds in our file exactly the domains and services that were to be in it; any file of the
// administrator's reads to names without blanks around them.

#include <algorithm>

#include "fuzz.h"
#include "names.h"
#include "record.h"
#include "snippets.h"
#include "sssd_settings.h"

namespace {

using fuzzing::Require;
using namespace nimbrel::ad::logins;

bool Same(const nimbrel::ad::DomainLogIns& a, const nimbrel::ad::DomainLogIns& b) {
    return a.dnsName == b.dnsName && a.realm == b.realm && a.netbiosName == b.netbiosName && a.hostName == b.hostName &&
           a.machineAccount == b.machineAccount && a.keytab == b.keytab && a.trustedForests == b.trustedForests;
}

bool Same(const Record& a, const Record& b) {
    const bool sameDomain = a.domain && b.domain ? Same(*a.domain, *b.domain) : !a.domain && !b.domain;
    return sameDomain && a.controllers == b.controllers && a.smartCardServices == b.smartCardServices &&
           a.sssdRan == b.sssdRan;
}

bool IsAccepted(const Record& record) {
    try {
        if (record.domain) CheckDomain(*record.domain);
        CheckControllers(record.controllers);
        if (record.smartCardServices) CheckServices(*record.smartCardServices);
        return true;
    } catch (const nimbrel::kit::StatusError&) {
        return false;
    }
}

bool IsLong(const Record& record) {
    return record.controllers.size() > 256 || (record.domain && record.domain->trustedForests.size() > 256) ||
           (record.smartCardServices && record.smartCardServices->size() > 256);
}

// What SSSD's reader finds in the three files.
void CheckSnippets(const Record& record) {
    if (!record.domain) return;
    const std::vector<std::string> services = record.smartCardServices.value_or(std::vector<std::string>());
    SssdSettings settings;
    AddSssdSettings(DomainSnippet(*record.domain, {}, services), settings);
    std::vector<std::string> domains = {record.domain->dnsName};
    domains.insert(domains.end(), record.domain->trustedForests.begin(), record.domain->trustedForests.end());
    Require(settings.domains == domains, "our file has the domains that it was to have");
    Require(settings.services.value_or(std::vector<std::string>()) == services, "and the services");
    AddSssdSettings(ControllersSnippet(*record.domain, record.controllers), settings);
    AddSssdSettings(SmartCardSnippet(services), settings);
    domains.push_back(record.domain->dnsName);
    Require(settings.domains == domains, "the other two files add nothing of their own");
}

void CheckForeign(const std::string& text) {
    SssdSettings settings;
    AddSssdSettings(text, settings);
    const auto isName = [](const std::string& name) {
        return !name.empty() && name.find_first_of(",\n") == std::string::npos && name.front() != ' ' &&
               name.back() != ' ';
    };
    if (settings.services) {
        Require(std::all_of(settings.services->begin(), settings.services->end(), isName), "a service is a name");
    }
    for (const std::string& domain : settings.domains) {
        Require(domain.find('\n') == std::string::npos, "a domain is of one line");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzzing::Input(data, size).Rest();
    const Record record = ParseRecord(text);
    const std::string written = FormatRecord(record);
    Require(Same(ParseRecord(written), record), "a record reads the same again");
    Require(FormatRecord(ParseRecord(written)) == written, "and is written the same again");
    Require(IsLong(record) || IsAccepted(record), "what a record says may go into SSSD's files");
    CheckSnippets(record);
    CheckForeign(text);
    return 0;
}
