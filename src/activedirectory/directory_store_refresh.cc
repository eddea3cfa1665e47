#include <chrono>
#include <memory>

#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "foundation/system_calls.h"

namespace nimbrel::authentication {
namespace {

constexpr int kSteps = 5;        // configuration, trust state, trusted domains, relationships, smart-card services
constexpr int kDomainSteps = 4;  // all but the first

using Clock = std::chrono::steady_clock;

int MillisecondsSince(Clock::time_point start) {
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

void LogPartialRefresh(Clock::time_point start) {
    NimauthSyslog(LOG_WARNING, "AD cache updated partially in %i ms", MillisecondsSince(start));
}

// Whether `step` went without an exception of the library; otherwise `failure` is logged with its text.
template <typename Step>
bool Succeeds(const char* failure, const Step& step) {
    try {
        step();
        return true;
    } catch (const Exception& error) {
        NimauthSyslog(LOG_ERR, "%s: %s", failure, error.what());
        return false;
    }
}

}  // namespace

bool ActiveDirectoryStore::FetchAdConfig() {
    return Succeeds("Failed to get AD config",
                    [this] { const std::unique_ptr<StoreConfiguration> dropped(GetStoreConfiguration()); });
}

bool ActiveDirectoryStore::FetchDomainTrustState() {
    return Succeeds("Failed to get domain trust state", [this] { GetDomainTrustState(); });
}

bool ActiveDirectoryStore::FetchTrustedDomains() {
    return Succeeds("Failed to get trusted domains", [this] { GetTrustedDomains(); });
}

bool ActiveDirectoryStore::FetchScEnabledSvcs() {
    return Succeeds("Failed to get smart card enabled services",
                    [this] { _adCache.SetSmartCardEnabledServices(GetSmartCardEnabledServices()); });
}

bool ActiveDirectoryStore::FetchTrustRelationships() {
    bool complete = true;
    _adCache.IncreaseTrustRelationshipsGenNo();
    for (const Domain& domain : _adCache.GetAllDomains()) {
        try {
            GetDomainTrustRelationship(domain.DNSName());
        } catch (const Exception& error) {
            NimauthSyslog(LOG_ERR, "Failed to get trust relationship for %s: %s", domain.DNSName().c_str(),
                          error.what());
            complete = false;
        }
    }
    _adCache.CleanupOldTrustRelationships();
    return complete;
}

void ActiveDirectoryStore::UpdateCache(std::optional<bool> pcscdServicePolicy) {
    const Clock::time_point start = Clock::now();
    int successes = FetchAdConfig() ? 1 : 0;
    if (_adCache.IsDomainMember()) {
        if (FetchDomainTrustState()) ++successes;
        if (FetchTrustedDomains()) ++successes;
        if (FetchTrustRelationships()) ++successes;
        if (FetchScEnabledSvcs()) {
            ++successes;
        } else if (!pcscdServicePolicy.has_value()) {
            LogPartialRefresh(start);
            return;
        }
    } else {
        successes += kDomainSteps;
    }

    if (pcscdServicePolicy.has_value()) _adCache.SetPcscdSvcPolicyOn(*pcscdServicePolicy);
    if (successes == kSteps) {
        NimauthSyslog(LOG_DEBUG, "AD cache updated in %i ms", MillisecondsSince(start));
    } else {
        LogPartialRefresh(start);
    }
}

}  // namespace nimbrel::authentication
