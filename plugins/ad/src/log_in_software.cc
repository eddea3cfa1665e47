#include "log_in_software.h"

#include "addirectory/ad_error.h"
#include "gate.h"

namespace nimbrel::ad {
namespace {

LogInOptions OptionsOf(const Settings& settings) {
    return {settings.logInShell, settings.logInHome, settings.logInFullNames, settings.logInAccess};
}

template <class Call>
auto Translate(const Call& call) {
    const OutsideGate outside;
    try {
        return call();
    } catch (const LogInsError& error) {
        throw AdError(error.Status(), error.what());
    }
}

}  // namespace

DomainLogInSoftware::DomainLogInSoftware(const Settings& settings) : _logIns("", OptionsOf(settings)) {}

void DomainLogInSoftware::Enable(const JoinedDomain& domain) {
    Translate([&] {
        _logIns.Enable({domain.dnsName, domain.realm, domain.netbiosName, domain.hostName, domain.machineAccount,
                        domain.keytab, domain.trustedForests});
    });
}

void DomainLogInSoftware::Disable() {
    Translate([&] { _logIns.Disable(); });
}

void DomainLogInSoftware::SetPreferredControllers(const std::vector<std::string>& controllers) {
    Translate([&] { _logIns.SetPreferredControllers(controllers); });
}

void DomainLogInSoftware::SetSmartCardServices(const std::vector<std::string>& services) {
    Translate([&] { _logIns.SetSmartCardServices(services); });
}

std::vector<std::string> DomainLogInSoftware::SmartCardServices() const {
    return Translate([&] { return _logIns.SmartCardServices(); });
}

}  // namespace nimbrel::ad
