#include "log_in_software.h"

#include "gate.h"

namespace nimbrel::ad {
namespace {

LogInOptions OptionsOf(const Settings& settings) {
    return {settings.logInShell, settings.logInHome, settings.logInFullNames, settings.logInAccess};
}

template <class Call>
auto Outside(const Call& call) {
    const OutsideGate outside;
    return call();
}

}  // namespace

DomainLogInSoftware::DomainLogInSoftware(const Settings& settings) : _logIns("", OptionsOf(settings)) {}

void DomainLogInSoftware::Enable(const JoinedDomain& domain) {
    Outside([&] {
        _logIns.Enable({domain.dnsName, domain.realm, domain.netbiosName, domain.hostName, domain.machineAccount,
                        domain.keytab, domain.trustedForests});
    });
}

void DomainLogInSoftware::Disable() {
    Outside([&] { _logIns.Disable(); });
}

void DomainLogInSoftware::DisableDomain() {
    Outside([&] { _logIns.DisableDomain(); });
}

void DomainLogInSoftware::SetPreferredControllers(const std::vector<std::string>& controllers) {
    Outside([&] { _logIns.SetPreferredControllers(controllers); });
}

void DomainLogInSoftware::SetSmartCardServices(const std::vector<std::string>& services) {
    Outside([&] { _logIns.SetSmartCardServices(services); });
}

std::vector<std::string> DomainLogInSoftware::SmartCardServices() const {
    return Outside([&] { return _logIns.SmartCardServices(); });
}

}  // namespace nimbrel::ad
