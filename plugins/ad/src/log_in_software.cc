#include "log_in_software.h"

#include "addirectory/ad_error.h"

namespace nimbrel::ad {
namespace {

constexpr std::uint32_t kStatusNotImplemented = 120;

}  // namespace

DomainLogInSoftware::DomainLogInSoftware(const Settings&) {}

void DomainLogInSoftware::Enable(const JoinedDomain&) {}

void DomainLogInSoftware::Disable() {}

void DomainLogInSoftware::SetPreferredControllers(const std::vector<std::string>&) {}

void DomainLogInSoftware::SetSmartCardServices(const std::vector<std::string>&) {
    throw AdError(kStatusNotImplemented, "Smart-card services are not supported");
}

std::vector<std::string> DomainLogInSoftware::SmartCardServices() const {
    throw AdError(kStatusNotImplemented, "Smart-card services are not supported");
}

}  // namespace nimbrel::ad
