// Where the store's background work runs, and what happens when it cannot be started.

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <thread>

#include "authentication/background_work.h"
#include "authentication/exceptions.h"
#include "plugins/calls.h"
#include "plugins/store_fixture.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Work = std::function<void()>;

class StoreScheduling : public ScriptedStoreTest {
 protected:
    StoreScheduling() { Creates().count.Reset(); }
    ~StoreScheduling() override {
        NimauthThreadUtil::SetScheduler({});
        Creates().result = 0;
        RunOne();
    }

    // A scheduler that keeps its work items until the test runs them.
    void KeepWork() {
        NimauthThreadUtil::SetScheduler([this](Work work) { _kept.push_back(std::move(work)); });
    }
    void RunOne() {
        if (_kept.empty()) return;
        std::thread(_kept.front()).join();
        _kept.erase(_kept.begin());
    }
    std::size_t Kept() const { return _kept.size(); }

 private:
    std::vector<Work> _kept;
};

// ---------------------------------------------------------------- an installed scheduler

TEST_F(StoreScheduling, ASchedulerGetsEachWorkItemOnce) {
    KeepWork();
    Impatient().GetTrustedDomains();
    Impatient().GetTrustedDomains();
    EXPECT_EQ(Kept(), 1u);
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 0);
    EXPECT_EQ(Creates().count.Get(), 0);
    RunOne();
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 1);
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
}

TEST_F(StoreScheduling, AQueryIsAnsweredThroughAScheduler) {
    NimauthThreadUtil::SetScheduler([](Work work) { std::thread(std::move(work)).detach(); });
    plugin->setValue(kGetDomainTrustState, 1);
    EXPECT_EQ(Patient().GetDomainTrustState(), 1);
    EXPECT_EQ(Creates().count.Get(), 0);
}

TEST_F(StoreScheduling, AnEmptySchedulerBringsTheThreadsBack) {
    KeepWork();
    NimauthThreadUtil::SetScheduler({});
    Patient().GetTrustedDomains();
    EXPECT_EQ(Kept(), 0u);
    EXPECT_EQ(Creates().count.Get(), 1);
}

TEST_F(StoreScheduling, TheSchedulerIsMovedInAndDestroyedWhenReplaced) {
    const auto owner = std::make_shared<int>(0);
    NimauthThreadUtil::SetScheduler([owner](Work work) { std::thread(std::move(work)).detach(); });
    EXPECT_EQ(owner.use_count(), 2);
    NimauthThreadUtil::SetScheduler({});
    EXPECT_EQ(owner.use_count(), 1);
}

TEST_F(StoreScheduling, WhatASchedulerThrowsReachesTheCallerAndNoRequestStays) {
    NimauthThreadUtil::SetScheduler([](const Work&) { throw std::runtime_error("the pool is closed"); });
    EXPECT_EQ(TextOf<std::runtime_error>([&] { Patient().GetTrustedDomains(); }), "the pool is closed");
    EXPECT_EQ(TextOf<std::runtime_error>([&] { Patient().GetStoreConfiguration(); }), "the pool is closed");
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
    EXPECT_EQ(plugin->order(nullptr, 0), 0);

    NimauthThreadUtil::SetScheduler({});
    EXPECT_THAT(Patient().GetTrustedDomains(), IsEmpty());
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 1);
}

TEST_F(StoreScheduling, ASchedulersLibraryExceptionIsOneLikeAnyOther) {
    NimauthThreadUtil::SetScheduler([](const Work&) { throw NotEnoughMemoryException(); });
    EXPECT_FALSE(Patient().FetchTrustedDomains());
    EXPECT_THAT(log.Take(),
                ElementsAre(Error("Failed to get trusted domains: Exception 0x00000008: Not enough memory")));
    EXPECT_EQ(OpenStore::RequestCount(), 0u);
}

// The old entry of a domain whose relationship could not be asked for is dropped with those of domains that are gone.
TEST_F(StoreScheduling, ARefreshGoesOnBehindADomainThatCannotBeAskedFor) {
    const char* const kLabAndSub[] = {"lab.test", "LAB", "sub.lab.test", "SUB", nullptr};
    BecomeMember();
    plugin->setTexts(kGetTrustedDomains, kLabAndSub);
    plugin->setValue(kGetDomainTrustRelationship, 3);
    ADCache& cache = OpenStore::MutableCache();
    for (const char* domain : {"corp.test", "lab.test", "sub.lab.test"}) {
        cache.SetDomainTrustRelationship(domain, static_cast<TrustRelationship>(1));
    }
    // The configuration, the trusted domains, the trust state, the trusted domains, and the domain itself come before.
    constexpr int kRelationshipOfLab = 6;
    int items = 0;
    NimauthThreadUtil::SetScheduler([&items](Work work) {
        if (++items == kRelationshipOfLab) throw NotEnoughMemoryException();
        std::thread(std::move(work)).detach();
    });
    Patient().UpdateCache(std::nullopt);
    EXPECT_THAT(log.Take(),
                ElementsAre(Error("Failed to get trust relationship for lab.test: Exception 0x00000008: Not "
                                  "enough memory"),
                            Took(LOG_WARNING, "AD cache updated partially in ")));
    EXPECT_EQ(cache.GetDomainTrustRelationship("corp.test"), 3);
    EXPECT_EQ(cache.GetDomainTrustRelationship("lab.test"), 6);
    EXPECT_EQ(cache.GetDomainTrustRelationship("sub.lab.test"), 3);
}

// ---------------------------------------------------------------- no thread

// Callers match on these texts: they start as many characters into the literal as the error number says.
TEST_F(StoreScheduling, AThreadThatCannotBeStartedIsAThreadError) {
    const struct {
        int result;
        const char* text;
    } kRows[] = {{1, "Thread Error: thread_create failed. RC="},
                 {8, "Thread Error: create failed. RC="},
                 {11, "Thread Error: ate failed. RC="},
                 {22, "Thread Error:  RC="},
                 {25, "Thread Error: ="},
                 {26, "Thread Error: "},
                 {27, "Thread Error: "},
                 {133, "Thread Error: "},
                 {4095, "Thread Error: "}};
    for (const auto& row : kRows) {
        Creates().result = row.result;
        EXPECT_EQ(TextOf<ThreadErrorException>([&] { Patient().GetTrustedDomains(); }), row.text) << row.result;
        EXPECT_EQ(TextOf<ThreadErrorException>([&] { Patient().GetStoreConfiguration(); }), row.text) << row.result;
        EXPECT_EQ(TextOf<ThreadErrorException>([&] { Patient().GetDomainTrustRelationship("d"); }), row.text);
        EXPECT_EQ(OpenStore::RequestCount(), 0u);
    }
    EXPECT_EQ(plugin->order(nullptr, 0), 0) << "the work items are not run";
}

TEST_F(StoreScheduling, WithoutThreadsTheTrustStateFailsAfterTheTrustedDomains) {
    Creates().result = 11;
    EXPECT_EQ(TextOf<ThreadErrorException>([&] { Patient().GetDomainTrustState(); }), "Thread Error: ate failed. RC=");
    EXPECT_THAT(log.Take(),
                ElementsAre(Warning("GetDomainTrustState: Call to GetTrustedDomains() failed: Thread Error: "
                                    "ate failed. RC=")));
}

TEST_F(StoreScheduling, ThreadsThatAreBackAnswerAgain) {
    Creates().result = 11;
    EXPECT_THROW(Patient().GetTrustedDomains(), ThreadErrorException);
    Creates().result = 0;
    EXPECT_THAT(Patient().GetTrustedDomains(), IsEmpty());
    EXPECT_EQ(plugin->calls(kGetTrustedDomains), 1);
}

TEST_F(StoreScheduling, ARequestThatRunsIsAttachedToWithoutAThread) {
    plugin->hold(kGetTrustedDomains);
    Impatient().GetTrustedDomains();
    Creates().result = 11;
    EXPECT_NO_THROW(Impatient().GetTrustedDomains());
}

TEST_F(StoreScheduling, ARefreshWithoutThreadsIsPartial) {
    Creates().result = 11;
    BecomeMember();
    Patient().UpdateCache(std::nullopt);
    const std::string text = ": Thread Error: ate failed. RC=";
    EXPECT_THAT(log.Take(), ElementsAre(Error("Failed to get AD config" + text),
                                        Warning("GetDomainTrustState: Call to GetTrustedDomains() failed" + text),
                                        Error("Failed to get domain trust state" + text),
                                        Error("Failed to get trusted domains" + text),
                                        Error("Failed to get trust relationship for corp.test" + text),
                                        Took(LOG_WARNING, "AD cache updated partially in ")));
}

}  // namespace
}  // namespace nimbrel::authentication::test
