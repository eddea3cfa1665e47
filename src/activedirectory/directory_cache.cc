#include "authentication/directory_cache.h"

#include <algorithm>
#include <utility>

namespace nimbrel::authentication {
namespace {

using Guard = std::lock_guard<std::mutex>;

constexpr auto kInitialTrustState = static_cast<TrustState>(7);
constexpr auto kUnknownRelationship = static_cast<TrustRelationship>(6);

}  // namespace

ActiveDirectoryStoreConfiguration::ActiveDirectoryStoreConfiguration() = default;
ActiveDirectoryStoreConfiguration::ActiveDirectoryStoreConfiguration(std::string domainDNSName,
                                                                     std::string domainNetBIOSName,
                                                                     std::deque<std::string> preferredDomainControllers,
                                                                     std::string machineAccountDN)
    : _domainDNSName(std::move(domainDNSName)),
      _domainNetBIOSName(std::move(domainNetBIOSName)),
      _preferredDomainControllers(std::move(preferredDomainControllers)),
      _machineAccountDN(std::move(machineAccountDN)) {}
ActiveDirectoryStoreConfiguration::ActiveDirectoryStoreConfiguration(const ActiveDirectoryStoreConfiguration&) =
    default;
ActiveDirectoryStoreConfiguration& ActiveDirectoryStoreConfiguration::operator=(
    const ActiveDirectoryStoreConfiguration&) = default;
ActiveDirectoryStoreConfiguration::~ActiveDirectoryStoreConfiguration() = default;

void ActiveDirectoryStoreConfiguration::Swap(ActiveDirectoryStoreConfiguration& other) noexcept {
    _domainDNSName.swap(other._domainDNSName);
    _domainNetBIOSName.swap(other._domainNetBIOSName);
    _preferredDomainControllers.swap(other._preferredDomainControllers);
    _machineAccountDN.swap(other._machineAccountDN);
}

ADCache::ADCache() : _trustState(kInitialTrustState) {}
ADCache::~ADCache() = default;

void ADCache::SetConfiguration(ActiveDirectoryStoreConfiguration&& configuration) {
    const Guard guard(_mutex);
    _configuration.Swap(configuration);
}

ActiveDirectoryStoreConfiguration ADCache::GetConfiguration() const {
    const Guard guard(_mutex);
    return _configuration;
}

bool ADCache::IsDomainMember() const {
    const Guard guard(_mutex);
    return !_configuration.DomainDNSName().empty();
}

void ADCache::SetDomainTrustState(TrustState state) {
    const Guard guard(_mutex);
    _trustState = state;
}

TrustState ADCache::GetDomainTrustState() const {
    const Guard guard(_mutex);
    return _trustState;
}

// The old list is freed after the lock is released.
void ADCache::SetTrustedDomains(std::deque<Domain>&& domains) {
    std::deque<Domain> replacement(std::move(domains));
    const Guard guard(_mutex);
    _trustedDomains.swap(replacement);
}

std::deque<Domain> ADCache::GetTrustedDomains() const {
    const Guard guard(_mutex);
    return _trustedDomains;
}

std::vector<Domain> ADCache::GetAllDomains() const {
    const Guard guard(_mutex);
    std::vector<Domain> domains;
    domains.reserve(1 + _trustedDomains.size());
    domains.emplace_back(_configuration.DomainDNSName(), _configuration.DomainNetBIOSName());
    domains.insert(domains.end(), _trustedDomains.begin(), _trustedDomains.end());
    return domains;
}

void ADCache::IncreaseTrustRelationshipsGenNo() {
    const Guard guard(_mutex);
    ++_trustRelationshipsGeneration;
}

void ADCache::SetDomainTrustRelationship(const std::string& domain, TrustRelationship relationship) {
    const Guard guard(_mutex);
    _trustRelationships.insert_or_assign(domain, Relationship{relationship, _trustRelationshipsGeneration});
}

// The stamp is eight bits wide: an entry left alone for exactly 256 passes would look current. A cleanup after every
// pass keeps that from happening.
void ADCache::CleanupOldTrustRelationships() {
    const Guard guard(_mutex);
    std::erase_if(_trustRelationships,
                  [this](const auto& entry) { return entry.second.generation != _trustRelationshipsGeneration; });
}

TrustRelationship ADCache::GetDomainTrustRelationship(const std::string& domain) const {
    const Guard guard(_mutex);
    const auto entry = _trustRelationships.find(domain);
    return entry == _trustRelationships.end() ? kUnknownRelationship : entry->second.value;
}

void ADCache::SetSmartCardEnabledServices(const std::vector<std::string>& services) {
    const Guard guard(_mutex);
    _smartCardEnabledServices = services;
}

void ADCache::SetPcscdSvcPolicyOn(bool on) {
    const Guard guard(_mutex);
    _pcscdServicePolicyOn = on;
}

bool ADCache::IsSmartCardAuthenticationEnabled(const char* const* services, unsigned long count) const {
    const Guard guard(_mutex);
    if (!_pcscdServicePolicyOn) return false;
    return std::all_of(services, services + count, [this](const char* service) {
        return std::find(_smartCardEnabledServices.begin(), _smartCardEnabledServices.end(), service) !=
               _smartCardEnabledServices.end();
    });
}

}  // namespace nimbrel::authentication
