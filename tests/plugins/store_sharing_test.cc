// Callers that ask the same question share one provider call; callers of different questions do not wait for each other.

#include <atomic>
#include <functional>
#include <thread>

#include "authentication/exceptions.h"
#include "plugins/calls.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

const char* const kLab[] = {"lab.test", "LAB", nullptr};

class Callers {
 public:
    Callers(int count, const std::function<void()>& ask) {
        for (int i = 0; i < count; ++i) _threads.emplace_back(ask);
    }
    void Join() {
        for (std::thread& thread : _threads) thread.join();
    }

 private:
    std::vector<std::thread> _threads;
};

class StoreSharing : public ScriptedStoreTest, public ::testing::WithParamInterface<int> {
 protected:
    StoreSharing() { TimedWaits().count.Reset(); }

    // Every caller waits on the one request before the provider goes on.
    void AskAtOnce(int slot, const std::function<void()>& ask) {
        plugin->hold(slot);
        Callers callers(GetParam(), ask);
        TimedWaits().count.Await(GetParam());
        plugin->letGo(slot);
        callers.Join();
    }
};

INSTANTIATE_TEST_SUITE_P(Callers, StoreSharing, ::testing::Values(1, 8, 64, 1000), ::testing::PrintToStringParamName());

TEST_P(StoreSharing, OneProviderCallAnswersAllCallers) {
    std::atomic<int> answered = 0;
    plugin->setTexts(kGetTrustedDomains, kLab);
    AskAtOnce(kGetTrustedDomains, [&] {
        const std::deque<Domain> domains = Patient().GetTrustedDomains();
        if (domains.size() == 1 && domains[0].DNSName() == "lab.test") ++answered;
    });
    EXPECT_EQ(answered, GetParam());
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 1);
    EXPECT_TRUE(log.Take().empty());
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
}

TEST_P(StoreSharing, OneFailureReachesAllCallersWithItsClassAndText) {
    std::atomic<int> refused = 0;
    plugin->setStatus(kGetTrustedDomains, 5);
    AskAtOnce(kGetTrustedDomains, [&] {
        const std::string text = TextOf<AccessDeniedException>([&] { Patient().GetTrustedDomains(); });
        if (text == "Exception 0x00000005: Access is denied.") ++refused;
    });
    EXPECT_EQ(refused, GetParam());
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 1);
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
}

TEST_P(StoreSharing, RelationshipsToOneDomainAreShared) {
    std::atomic<int> answered = 0;
    plugin->setRelationship("lab.test", 3);
    AskAtOnce(kGetDomainTrustRelationship, [&] {
        if (Patient().GetDomainTrustRelationship("lab.test") == 3) ++answered;
    });
    EXPECT_EQ(answered, GetParam());
    EXPECT_EQ(plugin->calls(kGetDomainTrustRelationship), 1);
}

TEST_P(StoreSharing, AHungCallTimesOutForEachCallerWithALineOfItsOwn) {
    OpenStore::MutableCache().SetTrustedDomains({Domain("old.test", "OLD")});
    std::atomic<int> answered = 0;
    plugin->hold(kGetTrustedDomains);
    Callers(GetParam(), [&] {
        const std::deque<Domain> domains = Impatient().GetTrustedDomains();
        if (domains.size() == 1 && domains[0].DNSName() == "old.test") ++answered;
    }).Join();
    EXPECT_EQ(answered, GetParam());
    const std::vector<LogRecord> lines(static_cast<std::size_t>(GetParam()),
                                       Warning("GetTrustedDomains call timedout. Returning cached value."));
    EXPECT_EQ(log.Take(), lines);
    plugin->awaitCalls(kGetTrustedDomains, 1);
    EXPECT_EQ(OpenStore::RequestCount(), 1u);
}

class StoreQuestions : public ScriptedStoreTest {};

TEST_F(StoreQuestions, DifferentOnesRunSideBySide) {
    for (int slot : {kGetActiveDomain, kGetTrustedDomains, kGetDomainTrustRelationship}) plugin->hold(slot);
    Callers configuration(1, [&] { std::unique_ptr<StoreConfiguration>(Patient().GetStoreConfiguration()); });
    Callers domains(1, [&] { Patient().GetTrustedDomains(); });
    Callers lab(1, [&] { Patient().GetDomainTrustRelationship("lab.test"); });
    Callers sub(1, [&] { Patient().GetDomainTrustRelationship("sub.lab.test"); });
    plugin->awaitCalls(kGetActiveDomain, 1);
    plugin->awaitCalls(kGetTrustedDomains, 1);
    plugin->awaitCalls(kGetDomainTrustRelationship, 2);
    for (const char* key :
         {"StoreConfig", "TrustedDomains", "TrustRelationship:lab.test", "TrustRelationship:sub.lab.test"}) {
        EXPECT_NE(OpenStore::Request(key), nullptr) << key;
    }
    EXPECT_EQ(OpenStore::RequestCount(), 4u);
    for (int slot : {kGetActiveDomain, kGetTrustedDomains, kGetDomainTrustRelationship}) plugin->letGo(slot);
    for (Callers* callers : {&configuration, &domains, &lab, &sub}) callers->Join();
}

TEST_F(StoreQuestions, TheTrustStateHasAKeyOfItsOwn) {
    plugin->hold(kGetDomainTrustState);
    Callers state(1, [&] { Patient().GetDomainTrustState(); });
    plugin->awaitCalls(kGetDomainTrustState, 1);
    EXPECT_NE(OpenStore::Request("TrustState"), nullptr);
    EXPECT_EQ(OpenStore::RequestCount(), 1u);
    plugin->letGo(kGetDomainTrustState);
    state.Join();
}

TEST_F(StoreQuestions, ACallerOfAnotherStoreAttachesToo) {
    plugin->hold(kGetTrustedDomains);
    Impatient().GetTrustedDomains();
    TimedWaits().count.Reset();
    Callers late(1, [&] { EXPECT_EQ(MakeStore(kPatient)->GetTrustedDomains().size(), 1u); });
    TimedWaits().count.Await(1);
    plugin->setTexts(kGetTrustedDomains, kLab);
    plugin->letGo(kGetTrustedDomains);
    late.Join();
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 1);
}

TEST_F(StoreQuestions, TheWorkOfAnAttachingCallerIsDropped) {
    plugin->hold(kGetTrustedDomains);
    Impatient().GetTrustedDomains();
    bool ran = false;
    const auto attached = OpenStore::StartOrAttachToRequest("TrustedDomains", [&](const std::string&) { ran = true; });
    EXPECT_EQ(attached, OpenStore::Request("TrustedDomains"));
    plugin->letGo(kGetTrustedDomains);
    attached->WaitResult(kPatient);
    EXPECT_FALSE(ran);
}

TEST_F(StoreQuestions, FinishingAnAbsentRequestIsIgnored) {
    OpenStore::FinishRequest("TrustedDomains", nullptr);
    OpenStore::FinishRequest("", std::make_unique<AccessDeniedException>());
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
}

}  // namespace
}  // namespace nimbrel::authentication::test
