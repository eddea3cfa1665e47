// The completion of one request, and waiting for it.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <climits>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "authentication/background_work.h"
#include "unit/event.h"

namespace {

std::function<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> timedWait;  // instead of the real one
timeval wallClock = {};                                                            // the time now, where it is not zero
Counter* waiting = nullptr;                                                        // raised by every wait

}  // namespace

extern "C" {

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline);
int __real_gettimeofday(timeval* now, void* zone);
int __wrap_gettimeofday(timeval* now, void* zone);

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
    if (waiting != nullptr) waiting->Increment();
    if (timedWait) return timedWait(condition, mutex, deadline);
    return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __wrap_gettimeofday(timeval* now, void* zone) {
    if (wallClock.tv_sec == 0) return __real_gettimeofday(now, zone);
    *now = wallClock;
    return 0;
}

}  // extern "C"

namespace {

using namespace nimbrel::authentication;

constexpr int kLong = 3600;  // seconds; only a bug waits that long

class Request : public ::testing::Test {
 protected:
    Request() { waiting = &_waiting; }
    ~Request() override {
        waiting = nullptr;
        timedWait = nullptr;
        wallClock = {};
    }

    void Succeed() { _state->Done(nullptr); }
    template <typename Error, typename... Arguments>
    void Fail(const Arguments&... arguments) {
        _state->Done(std::make_unique<Error>(arguments...));
    }

    // How a wait ended: "done", or the exception's text.
    std::string Wait(int seconds) const {
        try {
            _state->WaitResult(seconds);
        } catch (const Exception& error) {
            return error.what();
        }
        return "done";
    }

    // A wait that fails with this code.
    std::string WaitFailingWith(int rc) const {
        timedWait = [rc](auto...) { return rc; };
        return Wait(kLong);
    }

    // The deadline of a wait that starts at the wall clock.
    timespec DeadlineOf(int seconds) const {
        timespec seen = {};
        timedWait = [&seen](auto, auto, const timespec* deadline) {
            seen = *deadline;
            return ETIMEDOUT;
        };
        EXPECT_EQ(Wait(seconds), kTimedOut);
        return seen;
    }

    static constexpr const char* kTimedOut = "Provider call timed out.";
    std::shared_ptr<RequestState> _state = std::make_shared<RequestState>();
    Counter _waiting;
};

TEST_F(Request, FinishedRequestReturnsWithoutWaiting) {
    Succeed();
    timedWait = [](auto...) {
        ADD_FAILURE() << "it waited";
        return 0;
    };
    for (const int seconds : {kLong, 0, -1, INT_MAX, INT_MIN}) EXPECT_EQ(Wait(seconds), "done") << seconds;
}

TEST_F(Request, FailedRequestThrowsItsErrorWithoutWaiting) {
    Fail<NoSuchDomainException>();
    timedWait = [](auto...) {
        ADD_FAILURE() << "it waited";
        return 0;
    };
    for (const int seconds : {kLong, 0, -1}) EXPECT_THROW(_state->WaitResult(seconds), NoSuchDomainException);
}

TEST_F(Request, PendingRequestTimesOutAtOnceWithoutTime) {
    for (const int seconds : {0, -1, -1000, INT_MIN}) {
        EXPECT_THROW(_state->WaitResult(seconds), ProviderCallTimedOutException) << seconds;
        EXPECT_EQ(Wait(seconds), kTimedOut);
    }
}

TEST_F(Request, TimeOutLeavesTheRequestPendingAndALaterWaitSeesItsEnd) {
    EXPECT_EQ(Wait(0), kTimedOut);
    EXPECT_EQ(Wait(0), kTimedOut);
    Succeed();
    EXPECT_EQ(Wait(0), "done");
}

TEST_F(Request, FailedWaitLeavesTheRequestPending) {
    EXPECT_NE(WaitFailingWith(EINVAL), "done");
    timedWait = nullptr;
    Succeed();
    EXPECT_EQ(Wait(0), "done");
}

TEST_F(Request, EveryWaiterOfAFailedRequestGetsAnEqualError) {
    Fail<UnknownException>(0x1234UL);
    for (int i = 0; i < 3; ++i) {
        try {
            _state->WaitResult(0);
            ADD_FAILURE() << "the request succeeded";
        } catch (const UnknownException& error) {
            EXPECT_EQ(error.GetCode(), 0x1234U);
            EXPECT_STREQ(error.what(), "Exception 0x00001234: Unknown exception");
        }
    }
}

TEST_F(Request, NullAfterAnErrorKeepsTheError) {
    Fail<AccessDeniedException>();
    Succeed();
    EXPECT_THROW(_state->WaitResult(0), AccessDeniedException);
}

TEST_F(Request, ErrorAfterAnErrorReplacesAndFreesTheFirst) {
    Fail<AccessDeniedException>();
    Fail<NoNetworkException>();
    EXPECT_THROW(_state->WaitResult(0), NoNetworkException);
}

TEST_F(Request, DoneTakesOwnershipOfTheError) {
    std::unique_ptr<Exception> error = std::make_unique<IOError>("text");
    _state->Done(std::move(error));
    EXPECT_EQ(error, nullptr);
}

// Each waiter is in its wait before the request ends: the wait is counted under the lock that `Done` takes.
TEST_F(Request, DoneWakesEveryWaiter) {
    constexpr int kWaiters = 64;
    std::vector<std::string> results(kWaiters);
    std::vector<std::thread> waiters;
    for (std::string& result : results) waiters.emplace_back([this, &result] { result = Wait(kLong); });
    _waiting.WaitFor(kWaiters);
    Fail<NoLogonServersException>();
    for (std::thread& waiter : waiters) waiter.join();
    for (const std::string& result : results) EXPECT_EQ(result, NoLogonServersException().what());
}

TEST_F(Request, StateOutlivesItsCreatorWhileItIsShared) {
    std::string result;
    std::thread waiter([&result, state = _state] {
        try {
            state->WaitResult(kLong);
        } catch (const ConnectionRefusedException& error) {
            result = error.what();
        }
    });
    _waiting.WaitFor(1);
    std::thread worker([state = std::move(_state)] { state->Done(std::make_unique<ConnectionRefusedException>()); });
    worker.join();
    waiter.join();
    EXPECT_EQ(result, ConnectionRefusedException().what());
}

TEST_F(Request, SpuriousWakeUpsAreAbsorbed) {
    int wakeUps = 0;
    timedWait = [this, &wakeUps](pthread_cond_t*, pthread_mutex_t* mutex, const timespec*) {
        if (++wakeUps < 1000) return 0;
        pthread_mutex_unlock(mutex);
        Succeed();
        pthread_mutex_lock(mutex);
        return 0;
    };
    EXPECT_EQ(Wait(kLong), "done");
    EXPECT_EQ(wakeUps, 1000);
}

TEST_F(Request, DeadlineStaysTheSameAfterASpuriousWakeUp) {
    std::vector<timespec> deadlines;
    timedWait = [&deadlines](auto, auto, const timespec* deadline) {
        deadlines.push_back(*deadline);
        wallClock = {9999, 0};
        return deadlines.size() < 3 ? 0 : ETIMEDOUT;
    };
    wallClock = {1000, 0};
    EXPECT_EQ(Wait(7), kTimedOut);
    ASSERT_EQ(deadlines.size(), 3U);
    for (const timespec& deadline : deadlines) EXPECT_EQ(deadline.tv_sec, 1007);
}

// The time-out counts, even if the request ended in the same moment.
TEST_F(Request, WaitThatReportsATimeOutIsOneEvenIfTheRequestHasJustEnded) {
    timedWait = [this](pthread_cond_t*, pthread_mutex_t* mutex, const timespec*) {
        pthread_mutex_unlock(mutex);
        Succeed();
        pthread_mutex_lock(mutex);
        return ETIMEDOUT;
    };
    EXPECT_EQ(Wait(kLong), kTimedOut);
    EXPECT_EQ(Wait(kLong), "done");
}

TEST_F(Request, DeadlineIsTheWallClockPlusWholeSeconds) {
    wallClock = {1000, 999999};
    const struct {
        int seconds;
        time_t deadline;
    } kRows[] = {{0, 1000}, {1, 1001}, {60, 1060}, {-5, 995}, {INT_MAX, 1000L + INT_MAX}, {INT_MIN, 1000L + INT_MIN}};
    for (const auto& row : kRows) {
        const timespec deadline = DeadlineOf(row.seconds);
        EXPECT_EQ(deadline.tv_sec, row.deadline) << row.seconds;
        EXPECT_EQ(deadline.tv_nsec, 999999000) << row.seconds;
    }
}

TEST_F(Request, FailedWaitGivesTheTextFromItsCodeOn) {
    const struct {
        int rc;
        const char* message;
    } kRows[] = {
        {1, "Thread Error: thread_cond_timedwait failed. RC="},
        {22, "Thread Error:  failed. RC="},
        {23, "Thread Error: failed. RC="},
        {32, "Thread Error: C="},
        {33, "Thread Error: ="},
        {34, "Thread Error: "},
        {109, "Thread Error: "},
        {131, "Thread Error: "},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(WaitFailingWith(row.rc), row.message) << row.rc;
        EXPECT_THROW(_state->WaitResult(kLong), ThreadErrorException) << row.rc;
    }
    EXPECT_EQ(WaitFailingWith(ETIMEDOUT), kTimedOut);
}

// A lock that was left held would stop the second wait for ever.
TEST_F(Request, LockIsFreeAfterEveryKindOfEnd) {
    EXPECT_EQ(Wait(0), kTimedOut);
    EXPECT_NE(WaitFailingWith(EINVAL), "done");
    timedWait = nullptr;
    Fail<IOError>("text");
    EXPECT_EQ(Wait(0), "text");
    EXPECT_EQ(Wait(0), "text");
}

extern "C" void* WaitForLong(void* state) {
    static_cast<RequestState*>(state)->WaitResult(kLong);
    return nullptr;
}

// The worker that ends the request would be stopped for ever, and with it every store of the process.
TEST_F(Request, LockIsFreeAfterAWaiterWasCancelled) {
    pthread_t waiter = {};
    ASSERT_EQ(pthread_create(&waiter, nullptr, WaitForLong, _state.get()), 0);
    _waiting.WaitFor(1);
    pthread_cancel(waiter);
    void* result = nullptr;
    pthread_join(waiter, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    Succeed();
    EXPECT_EQ(Wait(0), "done");
}

TEST(RequestShape, HoldsDoneErrorMutexAndConditionInThisOrder) {
    struct Layout {
        int done;
        std::unique_ptr<Exception> error;
        pthread_mutex_t mutex;
        pthread_cond_t condition;
    };
    EXPECT_EQ(sizeof(RequestState), sizeof(Layout));
}

}  // namespace
