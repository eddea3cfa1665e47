#include <cxxabi.h>

#include <utility>

#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "foundation/mutex_guard.h"
#include "foundation/system_calls.h"

namespace nimbrel::authentication {
namespace {

constexpr auto kStateCannotBeTold = static_cast<TrustState>(0);
constexpr auto kStateNotInTime = static_cast<TrustState>(2);
constexpr auto kStateNoMember = static_cast<TrustState>(7);
constexpr auto kRelationshipCannotBeTold = static_cast<TrustRelationship>(0);

constexpr const char* kStoreConfigKey = "StoreConfig";
constexpr const char* kTrustStateKey = "TrustState";
constexpr const char* kTrustedDomainsKey = "TrustedDomains";
constexpr const char* kTrustRelationshipKey = "TrustRelationship:";

// What stands in the table of requests: with its state the error that it ends with unless the body says otherwise. That is
// made while the caller can still be told that memory is out; the worker may find none, and a failure must not pass for an
// answer.
struct OutstandingRequest : RequestState {
    std::unique_ptr<Exception> pending = std::make_unique<ThreadErrorException>("Unexpected thread termination");
};

// The provider's answer, or `otherwise` where it lacks the operation.
template <typename Answer, typename Question>
Answer AskOr(const Answer& otherwise, const Question& question) {
    try {
        return question();
    } catch (const CallNotImplementedException&) {
        return otherwise;
    }
}

}  // namespace

ADCache& ActiveDirectoryStore::_adCache = *std::make_unique<ADCache>().release();
std::unordered_map<std::string, std::shared_ptr<RequestState>>& ActiveDirectoryStore::_asyncRequests =
    *std::make_unique<std::unordered_map<std::string, std::shared_ptr<RequestState>>>().release();
pthread_mutex_t ActiveDirectoryStore::_lock = PTHREAD_MUTEX_INITIALIZER;

std::shared_ptr<RequestState> ActiveDirectoryStore::StartOrAttachToRequest(
    const std::string& key, std::function<void(const std::string&)> work) {
    const MutexGuard guard(_lock);
    const auto [entry, isNew] = _asyncRequests.try_emplace(key);
    if (!isNew) return entry->second;
    try {
        auto state = std::make_shared<OutstandingRequest>();
        entry->second = state;
        NimauthThreadUtil::ScheduleFunctor([work = std::move(work), key] { work(key); });
        return state;
    } catch (...) {
        // Compensate: nobody would ever finish this request.
        _asyncRequests.erase(entry);
        throw;
    }
}

void ActiveDirectoryStore::FinishRequest(const std::string& key, std::unique_ptr<Exception> error) {
    const MutexGuard guard(_lock);
    const auto entry = _asyncRequests.find(key);
    if (entry == _asyncRequests.end()) return;
    entry->second->Done(std::move(error));
    _asyncRequests.erase(entry);
}

// Ends one request when it goes out of scope, whatever the reason: with the pending error unless the body has said
// otherwise. Waiters never hang.
class ActiveDirectoryStore::RequestEnd {
 public:
    explicit RequestEnd(const std::string& key) noexcept : _key(key) {
        const MutexGuard guard(_lock);
        const auto entry = _asyncRequests.find(key);
        if (entry != _asyncRequests.end()) _error = std::move(static_cast<OutstandingRequest&>(*entry->second).pending);
    }
    RequestEnd(const RequestEnd&) = delete;
    RequestEnd& operator=(const RequestEnd&) = delete;

    ~RequestEnd() { FinishRequest(_key, std::move(_error)); }

    void Fail(const Exception& error) { _error.reset(error.Clone()); }
    void Succeed() { _error.reset(); }

 private:
    const std::string& _key;
    std::unique_ptr<Exception> _error;
};

// Runs a background body: `body` asks the provider and writes the answer into the cache.
template <typename Body>
void ActiveDirectoryStore::RunBody(const std::string& key, const Body& body) {
    RequestEnd end(key);
    try {
        try {
            body();
            end.Succeed();
        } catch (const Exception& error) {
            end.Fail(error);
        }
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is ending: it must be let through
    } catch (...) {
        // A plug-in's own exception must not end the process; the waiters hear of it through the pending error.
    }
}

void ActiveDirectoryStore::GetStoreConfigurationInt(const Provider& provider, const std::string& key) {
    RunBody(key, [&provider] {
        const Domain domain = AskOr(Domain("", ""), [&] { return provider->GetActiveDomain(); });
        auto controllers = AskOr(std::deque<std::string>(), [&] { return provider->GetPreferredDomainControllers(); });
        auto machineAccountDN = AskOr(std::string(), [&] { return provider->GetMachineAccountDN(); });
        _adCache.SetConfiguration(ActiveDirectoryStoreConfiguration(
            domain.DNSName(), domain.NetBIOSName(), std::move(controllers), std::move(machineAccountDN)));
    });
}

void ActiveDirectoryStore::GetDomainTrustStateInt(const Provider& provider, const std::string& key) {
    RunBody(key, [&provider] {
        _adCache.SetDomainTrustState(AskOr(kStateCannotBeTold, [&] { return provider->GetDomainTrustState(); }));
    });
}

void ActiveDirectoryStore::GetTrustedDomainsInt(const Provider& provider, const std::string& key) {
    RunBody(key, [&provider] {
        _adCache.SetTrustedDomains(AskOr(std::deque<Domain>(), [&] { return provider->GetTrustedDomains(); }));
    });
}

void ActiveDirectoryStore::GetDomainTrustRelationshipInt(const Provider& provider, const std::string& domain,
                                                         const std::string& key) {
    RunBody(key, [&provider, &domain] {
        _adCache.SetDomainTrustRelationship(
            domain, AskOr(kRelationshipCannotBeTold, [&] { return provider->GetDomainTrustRelationship(domain); }));
    });
}

StoreConfiguration* ActiveDirectoryStore::GetStoreConfiguration() const {
    const auto work = [provider = _provider](const std::string& key) { GetStoreConfigurationInt(provider, key); };
    try {
        StartOrAttachToRequest(kStoreConfigKey, work)->WaitResult(_timeout);
    } catch (const ProviderCallTimedOutException&) {
        NimauthSyslog(LOG_WARNING, "GetStoreConfiguration call timedout. Returning cached value.");
    }
    return new ActiveDirectoryStoreConfiguration(_adCache.GetConfiguration());
}

std::deque<Domain> ActiveDirectoryStore::GetTrustedDomains() const {
    const auto work = [provider = _provider](const std::string& key) { GetTrustedDomainsInt(provider, key); };
    try {
        StartOrAttachToRequest(kTrustedDomainsKey, work)->WaitResult(_timeout);
    } catch (const ProviderCallTimedOutException&) {
        NimauthSyslog(LOG_WARNING, "GetTrustedDomains call timedout. Returning cached value.");
    }
    return _adCache.GetTrustedDomains();
}

TrustRelationship ActiveDirectoryStore::GetDomainTrustRelationship(const std::string& domain) const {
    const auto work = [provider = _provider, domain](const std::string& key) {
        GetDomainTrustRelationshipInt(provider, domain, key);
    };
    try {
        StartOrAttachToRequest(kTrustRelationshipKey + domain, work)->WaitResult(_timeout);
    } catch (const ProviderCallTimedOutException&) {
        NimauthSyslog(LOG_WARNING, "GetDomainTrustRelationship call timedout. Returning cached value for %s.",
                      domain.c_str());
    }
    return _adCache.GetDomainTrustRelationship(domain);
}

TrustState ActiveDirectoryStore::GetDomainTrustState() const {
    try {
        GetTrustedDomains();
    } catch (const FileNotFoundException&) {
        _adCache.SetDomainTrustState(kStateNoMember);
        return kStateNoMember;
    } catch (const Exception& error) {
        NimauthSyslog(LOG_WARNING, "GetDomainTrustState: Call to GetTrustedDomains() failed: %s", error.what());
    }

    const auto work = [provider = _provider](const std::string& key) { GetDomainTrustStateInt(provider, key); };
    try {
        StartOrAttachToRequest(kTrustStateKey, work)->WaitResult(_timeout);
    } catch (const ProviderCallTimedOutException&) {
        // The text speaks of the cached value although the cache has just been told that the state is not known in
        // time; clients match on it.
        NimauthSyslog(LOG_WARNING, "GetDomainTrustState call timedout. Returning cached value.");
        _adCache.SetDomainTrustState(kStateNotInTime);
    }
    return _adCache.GetDomainTrustState();
}

std::string ActiveDirectoryStore::ConvertCanonicalUsername(const std::string& name) const {
    return AskOr(name, [&] { return _provider->ConvertCanonicalUsername(name); });
}

std::string ActiveDirectoryStore::GetHostPrincipalForDomain(const std::string& domain) const {
    return AskOr(std::string(), [&] { return _provider->GetHostPrincipalForDomain(domain); });
}

std::string ActiveDirectoryStore::GetDomainControllerForDomain(const std::string& domainName) const {
    return AskOr(std::string(), [&] { return _provider->GetAnyDomainController("", domainName); });
}

std::vector<std::string> ActiveDirectoryStore::GetSmartCardEnabledServices() const {
    return _provider->GetSmartCardEnabledServices();
}

void ActiveDirectoryStore::SetSmartCardEnabledServices(const std::vector<std::string>& services) {
    _provider->SetSmartCardEnabledServices(services);
    _adCache.SetSmartCardEnabledServices(services);
}

void ActiveDirectoryStore::SetPreferredDomainControllers(const std::deque<std::string>& controllers) {
    try {
        _provider->SetPreferredDomainControllers(controllers);
    } catch (const CallNotImplementedException&) {
        NimauthSyslog(LOG_WARNING, "Setting of preferred domain controllers is not implemented.");
    }
}

}  // namespace nimbrel::authentication
