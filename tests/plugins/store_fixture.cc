#include "plugins/store_fixture.h"

#include <utility>

namespace nimbrel::authentication::test {
namespace {

const char* const kCorp[] = {"corp.test", "CORP", nullptr};

class Locked {
 public:
    explicit Locked(pthread_mutex_t& mutex) : _mutex(mutex) { pthread_mutex_lock(&_mutex); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    ~Locked() { pthread_mutex_unlock(&_mutex); }

 private:
    pthread_mutex_t& _mutex;
};

// Whether it ended well or not does not matter here.
void AwaitEnd(RequestState& state) {
    try {
        state.WaitResult(kPatient);
    } catch (const ProviderCallTimedOutException&) {
        ADD_FAILURE() << "a request never ended";
    } catch (const Exception&) {
    }
}

}  // namespace

std::shared_ptr<RequestState> OpenStore::Request(const std::string& key) {
    const Locked locked(_lock);
    const auto entry = _asyncRequests.find(key);
    return entry == _asyncRequests.end() ? nullptr : entry->second;
}

std::size_t OpenStore::RequestCount() {
    const Locked locked(_lock);
    return _asyncRequests.size();
}

void OpenStore::AwaitAllRequests() {
    std::vector<std::shared_ptr<RequestState>> states;
    {
        const Locked locked(_lock);
        for (const auto& [key, state] : _asyncRequests) states.push_back(state);
    }
    for (const auto& state : states) AwaitEnd(*state);
}

void OpenStore::ResetCache() {
    _adCache.SetConfiguration(ActiveDirectoryStoreConfiguration());
    _adCache.SetDomainTrustState(static_cast<TrustState>(7));
    _adCache.SetTrustedDomains({});
    _adCache.IncreaseTrustRelationshipsGenNo();
    _adCache.CleanupOldTrustRelationships();
    _adCache.SetSmartCardEnabledServices({});
    _adCache.SetPcscdSvcPolicyOn(false);
}

StoreTest::StoreTest(const std::string& builtProvider) {
    RemoveProviders();
    InstallProvider(builtProvider);
    ConfigureProvider("provider = \"" + builtProvider + "\"\n");
    OpenStore::ResetCache();
}

StoreTest::~StoreTest() {
    OpenStore::AwaitAllRequests();
    EXPECT_EQ(OpenStore::RequestCount(), 0u) << "a request stayed in the table";
}

ScriptedStoreTest::ScriptedStoreTest()
    : StoreTest("scripted"), plugin("scripted"), _patient(MakeStore(kPatient)), _impatient(MakeStore(kImpatient)) {
    plugin->reset();
}

ScriptedStoreTest::~ScriptedStoreTest() {
    for (int slot = 1; slot < kSlotCount; ++slot) plugin->letGo(slot);
    OpenStore::AwaitAllRequests();
}

void ScriptedStoreTest::BecomeMember() {
    plugin->setTexts(kGetActiveDomain, kCorp);
    OpenStore::MutableCache().SetConfiguration(ActiveDirectoryStoreConfiguration("corp.test", "CORP", {}, ""));
}

std::vector<int> ScriptedStoreTest::Order() {
    std::vector<int> slots(static_cast<std::size_t>(plugin->order(nullptr, 0)));
    plugin->order(slots.data(), static_cast<int>(slots.size()));
    return slots;
}

}  // namespace nimbrel::authentication::test
