#include "tools/nimauthctl/questions.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "authentication/background_work.h"

namespace nimbrel::nimauthctl {
namespace {

using authentication::NimauthThreadUtil;
using authentication::ProviderCallTimedOutException;
using authentication::RequestState;

// A gate that work waits at.
class Gate {
 public:
    void Open() {
        const std::lock_guard lock(_mutex);
        _open = true;
        _changed.notify_all();
    }
    void Pass() {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _open; });
    }

 private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _open = false;
};

// A query as the library makes it: a work item, and a wait for it that ends silently when time runs out.
int Query(int timeoutSeconds, std::shared_ptr<Gate> gate = nullptr) {
    const auto request = std::make_shared<RequestState>();
    NimauthThreadUtil::ScheduleFunctor([request, gate] {
        if (gate) gate->Pass();
        request->Done(nullptr);
    });
    try {
        request->WaitResult(timeoutSeconds);
    } catch (const ProviderCallTimedOutException&) {
        return 0;
    }
    return 1;
}

class QuestionsTest : public ::testing::Test {
 protected:
    QuestionsTest() { WatchWorkItems(); }
    ~QuestionsTest() override {
        hung->Open();
        while (WorkStillRuns()) std::this_thread::yield();
        NimauthThreadUtil::SetScheduler(nullptr);
    }

    const std::shared_ptr<Gate> hung = std::make_shared<Gate>();
};

TEST_F(QuestionsTest, AnswerInTimeIsFresh) {
    const auto answer = Ask(60, [] { return Query(60); });
    EXPECT_EQ(1, answer.value);
    EXPECT_FALSE(answer.stale);
}

TEST_F(QuestionsTest, AnswerOfAHungItemIsStale) {
    const auto answer = Ask(1, [&] { return Query(1, hung); });
    EXPECT_EQ(0, answer.value);
    EXPECT_TRUE(answer.stale);
    EXPECT_TRUE(WorkStillRuns());
}

TEST_F(QuestionsTest, WithoutAnyTimeEveryAnswerIsStale) {
    EXPECT_TRUE(Ask(0, [&] { return Query(0, hung); }).stale);
}

TEST_F(QuestionsTest, QueryWithoutAWorkItemIsStale) {
    EXPECT_TRUE(Ask(60, [] { return 1; }).stale);
}

TEST_F(QuestionsTest, TheLastItemDecides) {
    EXPECT_FALSE(Ask(1, [&] { return Query(1, hung) + Query(1); }).stale);
    const auto again = std::make_shared<Gate>();
    EXPECT_TRUE(Ask(1, [&] { return Query(1) + Query(1, again); }).stale);
    again->Open();
}

TEST_F(QuestionsTest, ItemThatEndsAfterTheTimeOutIsStaleAllTheSame) {
    const auto answer = Ask(1, [&] {
        const int value = Query(1, hung);
        hung->Open();
        return value;
    });
    EXPECT_EQ(0, answer.value);
    EXPECT_TRUE(answer.stale);
}

TEST_F(QuestionsTest, ErrorOfTheQueryReachesTheCaller) {
    EXPECT_THROW(Ask(60, []() -> int { throw std::runtime_error("refused"); }), std::runtime_error);
}

TEST_F(QuestionsTest, CallWithoutATimeOutGetsOne) {
    EXPECT_EQ(7, AskWithin(60, [] { return 7; }));
    EXPECT_EQ(std::nullopt, AskWithin(1, [gate = hung] {
                  gate->Pass();
                  return 7;
              }));
}

TEST_F(QuestionsTest, FailureOnAnotherThreadIsDescribedThere) {
    try {
        AskWithin(60, []() -> int { authentication::ThrowMappedException(1311); });
        FAIL();
    } catch (const CarriedFailure& error) {
        EXPECT_EQ("NoLogonServersException", error.Described().exception);
        EXPECT_EQ(ExitCode::Network, error.Described().exitCode);
        EXPECT_EQ(error.Described(), DescribeCurrentException());
    }
}

TEST_F(QuestionsTest, CallThatEndsItsThreadIsAFailure) {
    try {
        AskWithin(60, []() -> int { pthread_exit(nullptr); });
        FAIL();
    } catch (const CarriedFailure& error) {
        EXPECT_STREQ("Thread Error: Unexpected thread termination", error.what());
        EXPECT_EQ("ThreadErrorException", error.Described().exception);
    }
}

TEST_F(QuestionsTest, ItemsOfOtherThreadsAreNotWatched) {
    const QueryWatch watch(60);
    std::thread([] { NimauthThreadUtil::ScheduleFunctor([] {}); }).join();
    EXPECT_TRUE(watch.IsStale());
}

}  // namespace
}  // namespace nimbrel::nimauthctl
