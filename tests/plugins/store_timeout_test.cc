// The store's questions when the provider does not answer in time.

#include <chrono>

#include "authentication/exceptions.h"
#include "plugins/calls.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const char* const kLab[] = {"lab.test", "LAB", nullptr};

const LogRecord kDomainsLine = Warning("GetTrustedDomains call timedout. Returning cached value.");
const LogRecord kStateLine = Warning("GetDomainTrustState call timedout. Returning cached value.");

class StoreTimeOut : public ScriptedStoreTest {
 protected:
    StoreTimeOut() { OpenStore::MutableCache().SetTrustedDomains({Domain("old.test", "OLD")}); }
    ~StoreTimeOut() override {
        TimedWaits().result = 0;
        TimedWaits().keepDeadline = false;
        Clock().fixed = false;
    }

    static const ADCache& Cache() { return ActiveDirectoryStore::Cache(); }
    void AnswerAtLast(int slot) {
        plugin->letGo(slot);
        OpenStore::AwaitAllRequests();
    }
};

// ---------------------------------------------------------------- what the caller gets

TEST_F(StoreTimeOut, TrustedDomainsComeFromTheCache) {
    plugin->hold(kGetTrustedDomains);
    const std::deque<Domain> domains = Impatient().GetTrustedDomains();
    ASSERT_THAT(domains, SizeIs(1));
    EXPECT_EQ(domains[0].DNSName(), "old.test");
    EXPECT_THAT(log.Take(), ElementsAre(kDomainsLine));
}

TEST_F(StoreTimeOut, ATrustRelationshipComesFromTheCacheAndTheLineNamesTheDomain) {
    plugin->hold(kGetDomainTrustRelationship);
    EXPECT_EQ(Impatient().GetDomainTrustRelationship("lab.test"), 6);
    OpenStore::MutableCache().SetDomainTrustRelationship("100%s.test", static_cast<TrustRelationship>(3));
    EXPECT_EQ(Impatient().GetDomainTrustRelationship("100%s.test"), 3);
    EXPECT_THAT(
        log.Take(),
        ElementsAre(Warning("GetDomainTrustRelationship call timedout. Returning cached value for lab.test."),
                    Warning("GetDomainTrustRelationship call timedout. Returning cached value for 100%s.test.")));
}

TEST_F(StoreTimeOut, TheTrustStateBecomesTwoInTheCacheToo) {
    plugin->hold(kGetTrustedDomains);
    plugin->hold(kGetDomainTrustState);
    EXPECT_EQ(Impatient().GetDomainTrustState(), 2);
    EXPECT_EQ(Cache().GetDomainTrustState(), 2);
    EXPECT_THAT(log.Take(), ElementsAre(kDomainsLine, kStateLine));
}

TEST_F(StoreTimeOut, ANegativeTimeOutHasPassedToo) {
    plugin->hold(kGetTrustedDomains);
    EXPECT_THAT(MakeStore(-1)->GetTrustedDomains(), SizeIs(1));
    EXPECT_THAT(log.Take(), ElementsAre(kDomainsLine));
}

TEST_F(StoreTimeOut, TheSecondsAreWaitedForAndOnlyTheHungQuestionTimesOut) {
    plugin->setTexts(kGetTrustedDomains, kLab);
    plugin->hold(kGetDomainTrustState);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(MakeStore(3)->GetDomainTrustState(), 2);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(Cache().GetTrustedDomains().front().DNSName(), "lab.test");
    EXPECT_THAT(log.Take(), ElementsAre(kStateLine));
}

// ---------------------------------------------------------------- what the provider says later

TEST_F(StoreTimeOut, ALateAnswerIsInTheCacheForTheNextCaller) {
    plugin->hold(kGetTrustedDomains);
    Impatient().GetTrustedDomains();
    EXPECT_NE(OpenStore::Request("TrustedDomains"), nullptr);
    plugin->setTexts(kGetTrustedDomains, kLab);
    AnswerAtLast(kGetTrustedDomains);
    EXPECT_EQ(Cache().GetTrustedDomains().front().DNSName(), "lab.test");
    EXPECT_EQ(OpenStore::RequestCount(), 0u);

    Patient().GetTrustedDomains();
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 2) << "the next caller's request is new";
}

TEST_F(StoreTimeOut, ALateTrustStateReplacesTheTwo) {
    plugin->hold(kGetTrustedDomains);
    plugin->hold(kGetDomainTrustState);
    Impatient().GetDomainTrustState();
    plugin->setValue(kGetDomainTrustState, 1);
    plugin->letGo(kGetTrustedDomains);
    AnswerAtLast(kGetDomainTrustState);
    EXPECT_EQ(Cache().GetDomainTrustState(), 1);
}

TEST_F(StoreTimeOut, ALateTrustRelationshipIsEnteredForItsDomain) {
    plugin->hold(kGetDomainTrustRelationship);
    Impatient().GetDomainTrustRelationship("lab.test");
    plugin->setRelationship("lab.test", 3);
    AnswerAtLast(kGetDomainTrustRelationship);
    EXPECT_EQ(Cache().GetDomainTrustRelationship("lab.test"), 3);
}

TEST_F(StoreTimeOut, ALateFailureIsForgotten) {
    plugin->hold(kGetTrustedDomains);
    Impatient().GetTrustedDomains();
    log.Take();
    plugin->setStatus(kGetTrustedDomains, 5);
    AnswerAtLast(kGetTrustedDomains);
    EXPECT_EQ(Cache().GetTrustedDomains().front().DNSName(), "old.test");
    EXPECT_THAT(log.Take(), IsEmpty());

    plugin->setStatus(kGetTrustedDomains, 0);
    EXPECT_THAT(Patient().GetTrustedDomains(), IsEmpty());
}

TEST_F(StoreTimeOut, CallersMeanwhileAttachAndTimeOutOneByOne) {
    plugin->hold(kGetTrustedDomains);
    for (int caller = 0; caller < 3; ++caller) Impatient().GetTrustedDomains();
    EXPECT_THAT(log.Take(), ElementsAre(kDomainsLine, kDomainsLine, kDomainsLine));
    plugin->awaitCalls(kGetTrustedDomains, 1);
    EXPECT_EQ(OpenStore::RequestCount(), 1u);
    AnswerAtLast(kGetTrustedDomains);
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 1);
}

// ---------------------------------------------------------------- the wait itself

TEST_F(StoreTimeOut, TheDeadlineIsTheWallClockPlusTheTimeOut) {
    plugin->hold(kGetTrustedDomains);
    Clock().fixed = true;
    Clock().now = {1000, 250007};
    TimedWaits().keepDeadline = true;
    MakeStore(25)->GetTrustedDomains();
    EXPECT_EQ(TimedWaits().deadline.tv_sec, 1025);
    EXPECT_EQ(TimedWaits().deadline.tv_nsec, 250007000);
}

// Callers match on these texts: they start as many characters into the literal as the error number says.
TEST_F(StoreTimeOut, AWaitThatFailsIsAThreadError) {
    plugin->hold(kGetTrustedDomains);
    const struct {
        int result;
        const char* text;
    } kRows[] = {{1, "Thread Error: thread_cond_timedwait failed. RC="},
                 {22, "Thread Error:  failed. RC="},
                 {33, "Thread Error: ="},
                 {34, "Thread Error: "},
                 {35, "Thread Error: "},
                 {4095, "Thread Error: "}};
    for (const auto& row : kRows) {
        TimedWaits().result = row.result;
        EXPECT_EQ(TextOf<ThreadErrorException>([&] { Patient().GetTrustedDomains(); }), row.text) << row.result;
    }
    EXPECT_EQ(OpenStore::RequestCount(), 1u) << "the provider call goes on";
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreTimeOut, AWaitThatFailsForTheTrustedDomainsDoesNotEndTheTrustStateQuestion) {
    plugin->hold(kGetTrustedDomains);
    plugin->hold(kGetDomainTrustState);
    TimedWaits().result = 22;
    EXPECT_EQ(TextOf<ThreadErrorException>([&] { Patient().GetDomainTrustState(); }), "Thread Error:  failed. RC=");
    EXPECT_THAT(log.Take(), ElementsAre(Warning("GetDomainTrustState: Call to GetTrustedDomains() failed: Thread "
                                                "Error:  failed. RC=")));
    EXPECT_EQ(Cache().GetDomainTrustState(), 7);
}

}  // namespace
}  // namespace nimbrel::authentication::test
