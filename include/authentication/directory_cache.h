// The last known answer to every directory query.
//
// Background workers write the cache when a provider call returns; callers read it when one does not return in time,
// and some questions (is the host a member, is smart-card login on for these services) are answered from it alone.
// There is one cache in the process, `ActiveDirectoryStore::Cache()`. Nothing in it outlives the process.
//
//     const ADCache& cache = ActiveDirectoryStore::Cache();
//     if (cache.IsDomainMember() && cache.GetDomainTrustRelationship("lab.test") != 6) ...
//
// Threads: every member may be called from any thread; each holds the cache's own mutex for its whole duration and only
// copies cross it. No member calls another. A mutex failure is thrown as `std::system_error`.

#ifndef NIMBREL_AUTHENTICATION_DIRECTORY_CACHE_H_
#define NIMBREL_AUTHENTICATION_DIRECTORY_CACHE_H_

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "authentication/directory_types.h"
#include "authentication/export.h"
#include "authentication/stores.h"

namespace nimbrel::authentication {

// The directory store's configuration snapshot. Every field is empty on a host that is no member, or when the provider
// cannot tell it.
class NIMAUTH_EXPORT ActiveDirectoryStoreConfiguration : public StoreConfiguration {
 public:
    ActiveDirectoryStoreConfiguration();
    ActiveDirectoryStoreConfiguration(std::string domainDNSName, std::string domainNetBIOSName,
                                      std::deque<std::string> preferredDomainControllers, std::string machineAccountDN);
    ActiveDirectoryStoreConfiguration(const ActiveDirectoryStoreConfiguration&);
    ActiveDirectoryStoreConfiguration& operator=(const ActiveDirectoryStoreConfiguration&);
    ~ActiveDirectoryStoreConfiguration() override;

    const std::string& DomainDNSName() const { return _domainDNSName; }
    const std::string& DomainNetBIOSName() const { return _domainNetBIOSName; }
    const std::deque<std::string>& PreferredDomainControllers() const { return _preferredDomainControllers; }
    const std::string& MachineAccountDN() const { return _machineAccountDN; }

    // Exchanges all four fields.
    void Swap(ActiveDirectoryStoreConfiguration& other) noexcept;

 private:
    std::string _domainDNSName;
    std::string _domainNetBIOSName;
    std::deque<std::string> _preferredDomainControllers;
    std::string _machineAccountDN;
};

class NIMAUTH_EXPORT ADCache {
 public:
    ADCache();
    ADCache(const ADCache&) = delete;
    ADCache& operator=(const ADCache&) = delete;
    ~ADCache();

    // Takes the new configuration and leaves the old one in the argument.
    void SetConfiguration(ActiveDirectoryStoreConfiguration&& configuration);
    ActiveDirectoryStoreConfiguration GetConfiguration() const;

    // Whether the cached domain DNS name is not empty.
    bool IsDomainMember() const;

    // 7 until it is set.
    void SetDomainTrustState(TrustState state);
    TrustState GetDomainTrustState() const;

    void SetTrustedDomains(std::deque<Domain>&& domains);
    std::deque<Domain> GetTrustedDomains() const;

    // The host's own domain first, present even when its names are empty, then the trusted domains in their order.
    // Duplicates are kept.
    std::vector<Domain> GetAllDomains() const;

    // One pass over the trust relationships: open it with `IncreaseTrustRelationshipsGenNo`, set each domain's
    // relationship, and end it with `CleanupOldTrustRelationships`, which drops every domain not set in this pass. The
    // pass number wraps from 255 to 0.
    void IncreaseTrustRelationshipsGenNo();
    void SetDomainTrustRelationship(const std::string& domain, TrustRelationship relationship);
    void CleanupOldTrustRelationships();

    // The relationship to exactly this name, or 6 for a domain of which nothing is known.
    TrustRelationship GetDomainTrustRelationship(const std::string& domain) const;

    void SetSmartCardEnabledServices(const std::vector<std::string>& services);

    // Whether smart-card login is allowed at all; false until it is set.
    void SetPcscdSvcPolicyOn(bool on);

    // Whether smart-card login is on for each of the `count` names at `services` (compared exactly). Always false while
    // the policy is off; true for no names while it is on. `services` may be null when `count` is 0.
    bool IsSmartCardAuthenticationEnabled(const char* const* services, unsigned long count) const;

 private:
    struct Relationship {
        TrustRelationship value;
        std::uint8_t generation;
    };

    mutable std::mutex _mutex;  // guards all below; never held across a provider call
    ActiveDirectoryStoreConfiguration _configuration;
    TrustState _trustState;
    bool _pcscdServicePolicyOn = false;
    std::vector<std::string> _smartCardEnabledServices;
    std::deque<Domain> _trustedDomains;
    std::uint8_t _trustRelationshipsGeneration = 0;
    std::unordered_map<std::string, Relationship> _trustRelationships;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_DIRECTORY_CACHE_H_
