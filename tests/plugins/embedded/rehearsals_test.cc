#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "embeddeddirectory/directory.h"
#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

using ::testing::IsEmpty;

class Rehearsals : public Sandbox {
 protected:
    Directory directory = Open();
};

TEST_F(Rehearsals, AreListedInSlotOrderAsTheyWereSet) {
    directory.SetRehearsal({"get-trusted-domains", 1500, {}, {}, 2});
    directory.SetRehearsal({"join-domain", 0, 0xFFFF0000U, {}, {}});
    directory.SetRehearsal({"get-domain-trust-state", 0, {}, -1, {}});
    const auto rehearsals = Open().ListRehearsals();
    ASSERT_EQ(rehearsals.size(), 3U);
    EXPECT_EQ(rehearsals[0].operation, "join-domain");
    EXPECT_EQ(rehearsals[0].status, 0xFFFF0000U);
    EXPECT_EQ(rehearsals[0].remaining, std::nullopt);
    EXPECT_EQ(rehearsals[1].operation, "get-domain-trust-state");
    EXPECT_EQ(rehearsals[1].value, -1);
    EXPECT_EQ(rehearsals[2].delayMilliseconds, 1500U);
    EXPECT_EQ(rehearsals[2].remaining, 2U);
}

TEST_F(Rehearsals, WhatMakesNoSenseIsRefused) {
    const RehearsalInfo refused[] = {
        {"no-such-operation", 1, {}, {}, {}},
        {"join-domain", 0, {}, {}, {}},
        {"join-domain", 0, 0, {}, {}},
        {"join-domain", 0, 5, {}, 0},
        {"join-domain", 86'400'001, {}, {}, {}},
        {"join-domain", 0, {}, 3, {}},
        {"get-domain-trust-state", 0, 5, {}, {}},
        {"get-domain-trust-relationship", 0, 5, 3, {}},
    };
    for (const auto& rehearsal : refused) {
        EXPECT_EQ(StatusOf([&] { directory.SetRehearsal(rehearsal); }), 87U) << rehearsal.operation;
    }
    EXPECT_THAT(Open().ListRehearsals(), IsEmpty());
}

TEST_F(Rehearsals, EveryOperationCanBeRehearsed) {
    for (const auto operation : kOperations) {
        directory.SetRehearsal({std::string(operation), 1, {}, {}, {}});
        EXPECT_TRUE(directory.TakeRehearsal(operation).has_value()) << operation;
    }
    EXPECT_EQ(Open().ListRehearsals().size(), kOperations.size());
}

TEST_F(Rehearsals, CountIsUsedUpCallByCall) {
    directory.SetRehearsal({"join-domain", 0, 1326, {}, 2});
    EXPECT_EQ(directory.TakeRehearsal("join-domain")->rehearsal.status, 1326U);
    EXPECT_EQ(Open().ListRehearsals()[0].remaining, 1U);
    EXPECT_FALSE(directory.TakeRehearsal("part-domain").has_value());
    EXPECT_TRUE(directory.TakeRehearsal("join-domain").has_value());
    EXPECT_FALSE(directory.TakeRehearsal("join-domain").has_value());
    EXPECT_EQ(Open().ListRehearsals()[0].remaining, 0U) << "shown as used up until it is cleared";
}

TEST_F(Rehearsals, ReplacedOrClearedOnesNoLongerStand) {
    directory.SetRehearsal({"join-domain", 1000, {}, {}, {}});
    const auto first = directory.TakeRehearsal("join-domain");
    EXPECT_TRUE(directory.StillRehearsed(first->ticket));
    directory.SetRehearsal({"join-domain", 1000, {}, {}, {}});
    EXPECT_FALSE(directory.StillRehearsed(first->ticket));
    const auto second = directory.TakeRehearsal("join-domain");
    EXPECT_TRUE(directory.ClearRehearsal("join-domain"));
    EXPECT_FALSE(directory.StillRehearsed(second->ticket));
    EXPECT_FALSE(directory.ClearRehearsal("join-domain"));
    EXPECT_EQ(StatusOf([&] { directory.ClearRehearsal("no-such-operation"); }), 87U);
}

TEST_F(Rehearsals, ClearingAllLeavesNone) {
    directory.SetRehearsal({"join-domain", 1, {}, {}, {}});
    directory.SetRehearsal({"part-domain", 1, {}, {}, {}});
    directory.ClearRehearsals();
    EXPECT_THAT(Open().ListRehearsals(), IsEmpty());
}

TEST_F(Rehearsals, CountIsExactUnderThreads) {
    directory.SetRehearsal({"join-domain", 0, 5, {}, 10});
    std::atomic<int> taken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            // Half of the threads share a connection, half have one of their own.
            Directory own = Open();
            Directory& used = i % 2 == 0 ? own : directory;
            for (int call = 0; call < 4; ++call) {
                taken += used.TakeRehearsal("join-domain").has_value() ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(taken, 10);
}

}  // namespace
}  // namespace nimbrel::embedded::test
