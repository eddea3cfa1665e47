// Whatever leaves a background body, its waiters hear of it and the process lives; and the provider stays loaded for as
// long as one of its calls runs.

#include <functional>
#include <set>
#include <thread>

#include "authentication/exceptions.h"
#include "plugins/calls.h"
#include "plugins/misbehaving/leaving_control.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kUnexpected[] = "Thread Error: Unexpected thread termination";

class LeftWorker : public StoreTest, public ::testing::WithParamInterface<const char*> {
 protected:
    LeftWorker() : StoreTest(GetParam()), store(MakeStore(kPatient)) {}
    // A worker lets go of its provider a little after its answer is there: the next test counts without it.
    ~LeftWorker() override {
        store.reset();
        while (IsLoaded(ProviderPath(GetParam()))) std::this_thread::yield();
    }

    std::unique_ptr<OpenStore> store;
};

INSTANTIATE_TEST_SUITE_P(Providers, LeftWorker,
                         ::testing::Values("throws_exception", "throws_int", "throws_bad_alloc", "exits_thread",
                                           "cancels_thread", "release_throws_exception", "release_exits_thread"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(LeftWorker, EveryQuestionEndsWithAThreadErrorAndLeavesTheTable) {
    const std::function<void()> kQuestions[] = {
        [&] { store->GetStoreConfiguration(); }, [&] { store->GetTrustedDomains(); },
        [&] { store->GetDomainTrustState(); }, [&] { store->GetDomainTrustRelationship("lab.test"); }};
    for (const auto& question : kQuestions) {
        EXPECT_EQ(TextOf<ThreadErrorException>(question), kUnexpected);
        EXPECT_EQ(OpenStore::RequestCount(), 0u);
        EXPECT_EQ(TextOf<ThreadErrorException>(question), kUnexpected) << "asked again";
    }
}

TEST_P(LeftWorker, TheCacheKeepsItsValues) {
    ADCache& cache = OpenStore::MutableCache();
    cache.SetConfiguration(ActiveDirectoryStoreConfiguration("corp.test", "CORP", {}, ""));
    cache.SetTrustedDomains({Domain("lab.test", "LAB")});
    cache.SetDomainTrustState(static_cast<TrustState>(1));
    cache.SetDomainTrustRelationship("lab.test", static_cast<TrustRelationship>(3));
    EXPECT_THROW(store->GetStoreConfiguration(), ThreadErrorException);
    EXPECT_THROW(store->GetTrustedDomains(), ThreadErrorException);
    EXPECT_THROW(store->GetDomainTrustState(), ThreadErrorException);
    EXPECT_THROW(store->GetDomainTrustRelationship("lab.test"), ThreadErrorException);
    EXPECT_TRUE(cache.IsDomainMember());
    EXPECT_EQ(cache.GetTrustedDomains().size(), 1u);
    EXPECT_EQ(cache.GetDomainTrustState(), 1);
    EXPECT_EQ(cache.GetDomainTrustRelationship("lab.test"), 3);
}

TEST_P(LeftWorker, TheTrustStateLogsWhatBecameOfTheTrustedDomains) {
    EXPECT_THROW(store->GetDomainTrustState(), ThreadErrorException);
    EXPECT_THAT(
        log.Take(),
        ElementsAre(Warning(std::string("GetDomainTrustState: Call to GetTrustedDomains() failed: ") + kUnexpected)));
}

// What the waiters of one call hear, which the provider `name` leaves once all of them wait.
template <typename Error, typename Question>
std::set<std::string> HeardByAll(const char* name, const Question& question) {
    constexpr int kWaiters = 8;
    const Plugin<LeavingControl> plugin(name);
    TimedWaits().count.Reset();
    plugin->setHeld(true);
    std::vector<std::string> heard(kWaiters);
    std::vector<std::thread> waiters;
    for (std::string& text : heard) waiters.emplace_back([&] { text = TextOf<Error>(question); });
    TimedWaits().count.Await(kWaiters);
    plugin->setHeld(false);
    for (std::thread& waiter : waiters) waiter.join();
    return {heard.begin(), heard.end()};
}

TEST_P(LeftWorker, EveryWaiterHearsOfIt) {
    EXPECT_THAT(HeardByAll<ThreadErrorException>(GetParam(), [&] { store->GetTrustedDomains(); }),
                ElementsAre(kUnexpected));
}

TEST_P(LeftWorker, ACallerWhoTimedOutIsNotTroubled) {
    const Plugin<LeavingControl> plugin(GetParam());
    plugin->setHeld(true);
    EXPECT_THAT(MakeStore(kImpatient)->GetTrustedDomains(), IsEmpty());
    plugin->setHeld(false);
    OpenStore::AwaitAllRequests();
    EXPECT_THAT(log.Take(), ElementsAre(Warning("GetTrustedDomains call timedout. Returning cached value.")));
}

// The work item is freed whichever way its thread ends, and with it the last hold on the provider.
TEST_P(LeftWorker, TheProviderIsClosedAfterItsLastCall) {
    const Plugin<LeavingControl> plugin(GetParam());
    plugin->setHeld(true);
    Closes().count.Reset();
    MakeStore(kImpatient)->GetTrustedDomains();
    EXPECT_EQ(Closes().count.Get(), 0) << "a call still runs in it";
    plugin->setHeld(false);
    Closes().count.Await(1);
}

class LibraryExceptionInWorker : public StoreTest {
 protected:
    static constexpr const char* kProvider = "throws_library";

    LibraryExceptionInWorker() : StoreTest(kProvider), store(MakeStore(kPatient)) {}

    std::unique_ptr<OpenStore> store;
};

// The question about the trusted domains, which the trust state's begins with, is left out: its failure is only logged.
TEST_F(LibraryExceptionInWorker, EveryWaiterForTheTrustStateGetsItAndTheCacheStays) {
    OpenStore::MutableCache().SetDomainTrustState(static_cast<TrustState>(1));
    const auto provider = std::make_shared<const ActiveDirectoryProvider>(kProvider);
    const auto question = [&] {
        OpenStore::StartOrAttachToRequest("TrustState", [provider](const std::string& key) {
            OpenStore::GetDomainTrustStateInt(provider, key);
        })->WaitResult(kPatient);
    };
    EXPECT_THAT(HeardByAll<NoLogonServersException>(kProvider, question),
                ElementsAre(NoLogonServersException().what()));
    EXPECT_EQ(ActiveDirectoryStore::Cache().GetDomainTrustState(), 1);
    EXPECT_THROW(store->GetDomainTrustState(), NoLogonServersException);
    EXPECT_EQ(ActiveDirectoryStore::Cache().GetDomainTrustState(), 1);
}

TEST_F(LibraryExceptionInWorker, EveryOtherWaiterGetsItToo) {
    EXPECT_THAT(HeardByAll<NoLogonServersException>(kProvider, [&] { store->GetDomainTrustRelationship("lab.test"); }),
                ElementsAre(NoLogonServersException().what()));
    EXPECT_THAT(HeardByAll<NoLogonServersException>(kProvider, [&] { delete store->GetStoreConfiguration(); }),
                ElementsAre(NoLogonServersException().what()));
}

class ProviderLifetime : public ScriptedStoreTest {};

TEST_F(ProviderLifetime, AStoreMayEndWhileItsProviderIsCalled) {
    Closes().count.Reset();
    plugin->hold(kGetTrustedDomains);
    MakeStore(kImpatient)->GetTrustedDomains();
    plugin->awaitCalls(kGetTrustedDomains, 1);
    EXPECT_EQ(Closes().count.Get(), 0);
    plugin->letGo(kGetTrustedDomains);
    Closes().count.Await(1);
}

TEST_F(ProviderLifetime, AStoreWhoseCallsHaveEndedClosesItsProvider) {
    auto store = MakeStore(kPatient);
    store->GetTrustedDomains();
    Closes().count.Reset();
    store.reset();
    Closes().count.Await(1);  // by this thread or by the worker, whichever let go last
    EXPECT_EQ(Closes().count.Get(), 1);
}

}  // namespace
}  // namespace nimbrel::authentication::test
