// What the service knows of its domain: who asks the directory, how often, and for how long an answer is good.

#include "services/apxd/known_domain.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <new>
#include <thread>
#include <vector>

namespace nimbrel::apxd::test {
namespace {

class ApxdKnownDomain : public ::testing::Test {
 protected:
    std::uint32_t Status() {
        try {
            EXPECT_EQ(domain.Facts().netbiosName, "CORP");
            return 0;
        } catch (const Refusal& refusal) {
            EXPECT_STREQ(refusal.what(), "no controller answers");
            return refusal.Status();
        }
    }

    std::atomic<int> asked = 0;
    std::function<void()> whileAsking = [] {};
    KnownDomain::Clock::time_point now = KnownDomain::Clock::now();
    KnownDomain domain{[this]() -> DomainFacts {
                           ++asked;
                           whileAsking();
                           return {"CORP", "corp.test", "S-1-5-21-1-2-3"};
                       },
                       [this] { return now; }};
};

[[noreturn]] void Refuse() { throw Unreachable("no controller answers"); }

TEST_F(ApxdKnownDomain, AnswerIsKeptForFiveMinutes) {
    EXPECT_EQ(Status(), 0U);
    now += std::chrono::minutes(5) - std::chrono::nanoseconds(1);
    EXPECT_EQ(Status(), 0U);
    EXPECT_EQ(asked, 1);
    now += std::chrono::nanoseconds(1);
    EXPECT_EQ(Status(), 0U);
    EXPECT_EQ(asked, 2);
}

TEST_F(ApxdKnownDomain, RefusalIsKeptForFiveSeconds) {
    whileAsking = Refuse;
    EXPECT_EQ(Status(), kNoSuchDomain);
    now += std::chrono::seconds(5) - std::chrono::nanoseconds(1);
    EXPECT_EQ(Status(), kNoSuchDomain);
    EXPECT_EQ(asked, 1);
    whileAsking = [] {};
    now += std::chrono::nanoseconds(1);
    EXPECT_EQ(Status(), 0U);
    EXPECT_EQ(asked, 2);
}

TEST_F(ApxdKnownDomain, OneQuestionIsAskedForAllWhoWait) {
    constexpr int kClients = 8;
    std::promise<void> allCame;
    std::atomic<int> came = 0;
    std::atomic<int> refused = 0;
    whileAsking = [&] {
        allCame.get_future().wait();  // a second question would throw here
        Refuse();
    };
    std::vector<std::thread> clients;
    for (int client = 0; client < kClients; ++client) {
        clients.emplace_back([&] {
            if (++came == kClients) allCame.set_value();
            refused += Status() == kNoSuchDomain;
        });
    }
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(refused, kClients);
    EXPECT_EQ(asked, 1);
}

TEST_F(ApxdKnownDomain, TimeBeginsWithTheAnswerNotWithTheQuestion) {
    whileAsking = [this] {
        now += std::chrono::minutes(1);
        Refuse();
    };
    EXPECT_EQ(Status(), kNoSuchDomain);
    EXPECT_EQ(Status(), kNoSuchDomain);
    EXPECT_EQ(asked, 1);
}

TEST_F(ApxdKnownDomain, FaultInsideIsToldAndNotKept) {
    whileAsking = [] { throw std::bad_alloc(); };
    EXPECT_THROW(domain.Facts(), std::bad_alloc);
    EXPECT_NO_THROW(domain.RequireReachable());
    whileAsking = [] {};
    EXPECT_EQ(Status(), 0U);
}

TEST_F(ApxdKnownDomain, OtherQuestionsAreSparedWhileItIsOutOfReach) {
    EXPECT_NO_THROW(domain.RequireReachable()) << "nobody has asked yet";
    whileAsking = Refuse;
    EXPECT_EQ(Status(), kNoSuchDomain);
    EXPECT_THROW(domain.RequireReachable(), Unreachable);
    now += KnownDomain::kRefusalKeeps;
    EXPECT_NO_THROW(domain.RequireReachable());
    whileAsking = [] {};
    EXPECT_EQ(Status(), 0U);
    EXPECT_NO_THROW(domain.RequireReachable());
}

TEST_F(ApxdKnownDomain, WhatIsKnownIsToldWhileItIsOutOfReach) {
    EXPECT_EQ(Status(), 0U);
    domain.NoteUnreachable("no controller answers");
    EXPECT_THROW(domain.RequireReachable(), Unreachable);
    EXPECT_EQ(Status(), 0U);
    now += KnownDomain::kAnswerKeeps;
    domain.NoteUnreachable("no controller answers");
    EXPECT_EQ(Status(), kNoSuchDomain) << "and is not asked for";
    EXPECT_EQ(asked, 1);
    now += KnownDomain::kRefusalKeeps;
    EXPECT_EQ(Status(), 0U);
}

// A controller that breaks off, for one.
TEST_F(ApxdKnownDomain, OtherRefusalsSpareNoQuestion) {
    for (const std::uint32_t status : {std::uint32_t{1326}, kNoSuchDomain}) {
        whileAsking = [=] { throw Refusal(status, "no controller answers"); };
        EXPECT_EQ(Status(), status);
        EXPECT_NO_THROW(domain.RequireReachable());
        now += KnownDomain::kRefusalKeeps;
    }
    whileAsking = [] { throw NothingChanged(kNoSuchDomain, "no controller answers"); };
    EXPECT_EQ(Status(), kNoSuchDomain);
    EXPECT_NO_THROW(domain.RequireReachable());
}

TEST_F(ApxdKnownDomain, QuestionUnderWayIsNotForestalled) {
    whileAsking = [this] { domain.NoteUnreachable("another question"); };
    EXPECT_EQ(Status(), 0U);
    EXPECT_EQ(Status(), 0U);
    EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace nimbrel::apxd::test
