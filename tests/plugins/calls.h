// Stand-ins for calls of the system, for programs linked with `-Wl,--wrap=<call>`.
//
// Each counts its calls or fails them as the test says; untouched, it passes them on. A program contains the stand-ins
// of the calls that it wraps by compiling calls_<call>.cc.

#ifndef TESTS_PLUGINS_CALLS_H_
#define TESTS_PLUGINS_CALLS_H_

#include <sys/time.h>

#include <condition_variable>
#include <ctime>
#include <deque>
#include <mutex>
#include <vector>

namespace nimbrel::authentication::test {

// A number that grows, and that threads can wait for.
class Counter {
 public:
    void Add() {
        std::lock_guard lock(_mutex);
        ++_count;
        _changed.notify_all();
    }
    int Get() {
        std::lock_guard lock(_mutex);
        return _count;
    }
    void Reset() {
        std::lock_guard lock(_mutex);
        _count = 0;
    }
    void Await(int count) {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [&] { return _count >= count; });
    }

 private:
    std::mutex _mutex;
    std::condition_variable _changed;
    int _count = 0;
};

// sleep: never sleeps; keeps the seconds that it was asked for. Returns the `rests` one by one, then 0.
struct SleepCalls {
    std::vector<unsigned> seconds;
    std::deque<unsigned> rests;
};
SleepCalls& Sleeps();

// dlclose.
struct CloseCalls {
    Counter count;
};
CloseCalls& Closes();

// pthread_create: fails with `result` while that is not 0.
struct CreateCalls {
    Counter count;
    int result = 0;
};
CreateCalls& Creates();

// pthread_cond_timedwait: fails with `result` while that is not 0. The count grows while the caller holds its mutex, so
// whoever then takes that mutex finds the caller waiting. Keeps the last call's `deadline` on demand, for tests in which
// only one thread waits.
struct TimedWaitCalls {
    Counter count;
    int result = 0;
    bool keepDeadline = false;
    timespec deadline = {};
};
TimedWaitCalls& TimedWaits();

// gettimeofday: answers with `now` while `fixed`.
struct ClockCalls {
    bool fixed = false;
    timeval now = {};
};
ClockCalls& Clock();

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PLUGINS_CALLS_H_
