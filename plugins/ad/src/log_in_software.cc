#include "log_in_software.h"

#include "addirectory/ad_error.h"
#include "adlogins/log_ins.h"

namespace nimbrel::ad::inline directory {
namespace {

// Runs `work` with the host's log-ins; its failures become those of the provider.
template <typename Work>
auto With(const LogInOptions& options, Work work) {
    try {
        LogIns logIns("", options);
        return work(logIns);
    } catch (const LogInsError& error) {
        throw AdError(error.Status(), error.what());
    }
}

}  // namespace

DomainLogInSoftware::DomainLogInSoftware(const Settings& settings)
    : _options{settings.logInShell, settings.logInHome, settings.logInFullNames, settings.logInAccess} {}

void DomainLogInSoftware::Enable(const JoinedDomain& domain) {
    With(_options, [&](LogIns& logIns) {
        logIns.Enable({domain.dnsName, domain.realm, domain.netbiosName, domain.hostName, domain.machineAccount,
                       domain.keytab, domain.trustedForests});
    });
}

void DomainLogInSoftware::Disable() {
    With(_options, [](LogIns& logIns) { logIns.Disable(); });
}

void DomainLogInSoftware::SetPreferredControllers(const std::vector<std::string>& controllers) {
    With(_options, [&](LogIns& logIns) { logIns.SetPreferredControllers(controllers); });
}

void DomainLogInSoftware::SetSmartCardServices(const std::vector<std::string>& services) {
    With(_options, [&](LogIns& logIns) { logIns.SetSmartCardServices(services); });
}

std::vector<std::string> DomainLogInSoftware::SmartCardServices() const {
    return With(_options, [](const LogIns& logIns) { return logIns.SmartCardServices(); });
}

}  // namespace nimbrel::ad::inline directory
