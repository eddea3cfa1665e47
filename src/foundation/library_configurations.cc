#include "authentication/configuration.h"

namespace nimbrel::authentication {

AuthenticationConfiguration::AuthenticationConfiguration()
    : Configuration("/etc/nimbrel/nimauth/authentication.conf") {}
AuthenticationConfiguration::~AuthenticationConfiguration() = default;

ProviderConfiguration::ProviderConfiguration() : Configuration("/etc/nimbrel/nimauth/provider.conf") {}
ProviderConfiguration::~ProviderConfiguration() = default;

APXProviderConfiguration::APXProviderConfiguration() : Configuration("/etc/nimbrel/nimauth/apxprovider.conf") {}
APXProviderConfiguration::~APXProviderConfiguration() = default;

}  // namespace nimbrel::authentication
