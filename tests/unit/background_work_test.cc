// Work items: on threads of their own, through an installed scheduler, and where no thread can be had.

#include "authentication/background_work.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "unit/event.h"

namespace {

int errorOfCreation = 0;  // what pthread_create returns instead of creating a thread
int threadsCreated = 0;
bool attributesWereDefault = false;
Counter* detached = nullptr;  // raised after a detach

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
int __real_pthread_detach(pthread_t thread);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
int __wrap_pthread_detach(pthread_t thread);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
    attributesWereDefault = attributes == nullptr;
    if (errorOfCreation != 0) return errorOfCreation;
    ++threadsCreated;
    return __real_pthread_create(thread, attributes, start, argument);
}

int __wrap_pthread_detach(pthread_t thread) {
    const int result = __real_pthread_detach(thread);
    if (detached != nullptr) detached->Increment();
    return result;
}

}  // extern "C"

namespace {

using nimbrel::authentication::NimauthThreadUtil;
using nimbrel::authentication::ThreadErrorException;

using WorkItem = std::function<void()>;

// Sets its event when the last work item that holds it is destroyed.
std::shared_ptr<void> Tracked(Event& destroyed) {
    return {static_cast<void*>(&destroyed), [](void* event) { static_cast<Event*>(event)->Set(); }};
}

class BackgroundWork : public ::testing::Test {
 protected:
    BackgroundWork() {
        threadsCreated = 0;
        attributesWereDefault = false;
        detached = &_detached;
    }
    ~BackgroundWork() override {
        NimauthThreadUtil::SetScheduler(nullptr);
        errorOfCreation = 0;
        detached = nullptr;
    }

    static std::string ScheduleError(int rc) {
        errorOfCreation = rc;
        try {
            NimauthThreadUtil::ScheduleFunctor([] { FAIL() << "the work item ran"; });
        } catch (const ThreadErrorException& error) {
            return error.what();
        }
        return "no error";
    }

    Counter _detached;
};

using BackgroundWorkDeathTest = BackgroundWork;

TEST_F(BackgroundWork, WorkItemRunsOnceOnADetachedThreadOfItsOwn) {
    std::thread::id worker;
    int runs = 0;
    Event destroyed;
    NimauthThreadUtil::ScheduleFunctor([&, keep = Tracked(destroyed)] {
        worker = std::this_thread::get_id();
        ++runs;
    });
    destroyed.Wait();
    EXPECT_NE(worker, std::this_thread::get_id());
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(threadsCreated, 1);
    EXPECT_TRUE(attributesWereDefault);
    _detached.WaitFor(1);
}

TEST_F(BackgroundWork, SchedulingReturnsWhileTheWorkItemStillRuns) {
    Event release;
    Event destroyed;
    NimauthThreadUtil::ScheduleFunctor([&, keep = Tracked(destroyed)] { release.Wait(); });
    release.Set();
    destroyed.Wait();
}

TEST_F(BackgroundWork, EveryWorkItemGetsAThreadOfItsOwn) {
    constexpr int kItems = 20;
    Counter started;
    Event release;
    std::vector<Event> destroyed(kItems);
    for (int i = 0; i < kItems; ++i) {
        NimauthThreadUtil::ScheduleFunctor([&, keep = Tracked(destroyed[static_cast<std::size_t>(i)])] {
            started.Increment();
            release.Wait();
        });
    }
    started.WaitFor(kItems);  // all at once
    release.Set();
    for (Event& event : destroyed) event.Wait();
    EXPECT_EQ(threadsCreated, kItems);
    _detached.WaitFor(kItems);
}

TEST_F(BackgroundWork, InstalledSchedulerGetsEveryWorkItem) {
    std::vector<WorkItem> taken;
    NimauthThreadUtil::SetScheduler([&taken](WorkItem work) { taken.push_back(std::move(work)); });
    int runs = 0;
    NimauthThreadUtil::ScheduleFunctor([&runs] { runs += 1; });
    NimauthThreadUtil::ScheduleFunctor([&runs] { runs += 10; });
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(runs, 0);
    for (const WorkItem& work : taken) work();
    EXPECT_EQ(runs, 11);
    EXPECT_EQ(threadsCreated, 0);
}

TEST_F(BackgroundWork, EmptyWorkItemReachesTheSchedulerAsItIs) {
    bool wasEmpty = false;
    NimauthThreadUtil::SetScheduler([&wasEmpty](const WorkItem& work) { wasEmpty = !work; });
    NimauthThreadUtil::ScheduleFunctor(nullptr);
    EXPECT_TRUE(wasEmpty);
}

TEST_F(BackgroundWork, WorkItemIsMovedIntoTheScheduler) {
    auto counted = std::make_shared<int>(0);
    const std::weak_ptr<int> observer = counted;
    long owners = 0;
    NimauthThreadUtil::SetScheduler([&](const WorkItem&) { owners = observer.use_count(); });
    NimauthThreadUtil::ScheduleFunctor([kept = std::move(counted)] {});
    EXPECT_EQ(owners, 1);
}

TEST_F(BackgroundWork, WhatTheSchedulerThrowsReachesTheCaller) {
    NimauthThreadUtil::SetScheduler([](const WorkItem&) { throw std::length_error("the queue is full"); });
    EXPECT_THROW(NimauthThreadUtil::ScheduleFunctor([] {}), std::length_error);
}

TEST_F(BackgroundWork, EmptySchedulerBringsTheThreadsBack) {
    NimauthThreadUtil::SetScheduler([](const WorkItem&) { FAIL() << "this scheduler is gone"; });
    NimauthThreadUtil::SetScheduler(nullptr);
    Event destroyed;
    NimauthThreadUtil::ScheduleFunctor([keep = Tracked(destroyed)] {});
    destroyed.Wait();
    EXPECT_EQ(threadsCreated, 1);
}

TEST_F(BackgroundWork, ReplacedSchedulerIsDestroyedAtOnce) {
    const auto held = std::make_shared<int>(0);
    NimauthThreadUtil::SetScheduler([held](const WorkItem&) {});
    EXPECT_EQ(held.use_count(), 2);
    NimauthThreadUtil::SetScheduler([](const WorkItem&) {});
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(BackgroundWork, FailedCreationGivesTheTextFromItsCodeOn) {
    const struct {
        int rc;
        const char* message;
    } kRows[] = {
        {1, "Thread Error: thread_create failed. RC="},
        {11, "Thread Error: ate failed. RC="},
        {12, "Thread Error: te failed. RC="},
        {22, "Thread Error:  RC="},
        {24, "Thread Error: C="},
        {25, "Thread Error: ="},
        {26, "Thread Error: "},
        {27, "Thread Error: "},
        {1000, "Thread Error: "},
        {2147483647, "Thread Error: "},
    };
    for (const auto& row : kRows) EXPECT_EQ(ScheduleError(row.rc), row.message) << row.rc;
    EXPECT_EQ(threadsCreated, 0);
}

TEST_F(BackgroundWork, WorkItemWithoutAThreadIsFreed) {
    const auto held = std::make_shared<int>(0);
    errorOfCreation = EAGAIN;
    EXPECT_THROW(NimauthThreadUtil::ScheduleFunctor([held] {}), ThreadErrorException);
    EXPECT_EQ(held.use_count(), 1);
}

// Both end the thread by a forced unwind, which no handler may swallow.
TEST_F(BackgroundWork, WorkItemThatEndsItsThreadIsFreed) {
    const WorkItem kEndings[] = {[] { pthread_exit(nullptr); },
                                 [] {
                                     pthread_cancel(pthread_self());
                                     pthread_testcancel();
                                 }};
    for (const WorkItem& ending : kEndings) {
        Event destroyed;
        NimauthThreadUtil::ScheduleFunctor([ending, keep = Tracked(destroyed)] { ending(); });
        destroyed.Wait();
    }
    _detached.WaitFor(2);
}

TEST_F(BackgroundWorkDeathTest, EmptyWorkItemEndsTheProcessOnItsThread) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto schedule = [] {
        NimauthThreadUtil::ScheduleFunctor(nullptr);
        for (;;) pause();
    };
    EXPECT_EXIT(schedule(), ::testing::KilledBySignal(SIGABRT), "bad_function_call");
}

TEST_F(BackgroundWorkDeathTest, ExceptionThatLeavesAWorkItemEndsTheProcess) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto schedule = [] {
        NimauthThreadUtil::ScheduleFunctor([] { throw std::out_of_range("nobody catches this"); });
        for (;;) pause();
    };
    EXPECT_EXIT(schedule(), ::testing::KilledBySignal(SIGABRT), "nobody catches this");
}

}  // namespace
