#include "tools/nimauthctl/questions.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "authentication/background_work.h"

namespace nimbrel::nimauthctl {

using std::chrono::steady_clock;
using std::chrono::system_clock;

// Shared by the watch and the work item; the last one frees it.
class QueryWatch::Item {
 public:
    void MarkEnded() {
        const std::lock_guard lock(_mutex);
        _ended = true;
        _changed.notify_all();
    }

    bool EndsBefore(steady_clock::time_point limit) {
        std::unique_lock lock(_mutex);
        return _changed.wait_until(lock, limit, [this] { return _ended; });
    }

    // The library waits by the real-time clock, which may be set meanwhile: the clock that ran further counts.
    std::chrono::nanoseconds Age() const {
        return std::max<std::chrono::nanoseconds>(steady_clock::now() - started, system_clock::now() - _startedReal);
    }

    const steady_clock::time_point started = steady_clock::now();

 private:
    const system_clock::time_point _startedReal = system_clock::now();
    std::mutex _mutex;  // guards the flag
    std::condition_variable _changed;
    bool _ended = false;
};

namespace {

thread_local QueryWatch* watchOfThread = nullptr;
std::atomic<int> running = 0;

// Ends the item and the count even if a plug-in ends its thread.
class Running {
 public:
    explicit Running(std::shared_ptr<QueryWatch::Item> item) : _item(std::move(item)) {}
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() {
        if (_item != nullptr) _item->MarkEnded();
        --running;
    }

 private:
    std::shared_ptr<QueryWatch::Item> _item;
};

void Start(std::function<void()> work, std::shared_ptr<QueryWatch::Item> item) {
    ++running;
    try {
        std::thread([work = std::move(work), item = std::move(item)]() mutable {
            const Running guard(std::move(item));
            work();
            work = nullptr;  // what it holds is gone before it counts as ended
        }).detach();
    } catch (const std::system_error& error) {
        --running;
        throw authentication::ThreadErrorException(std::string("unable to start a thread: ") + error.what());
    }
}

}  // namespace

void WatchWorkItems() {
    authentication::NimauthThreadUtil::SetScheduler([](std::function<void()> work) {
        auto item = std::make_shared<QueryWatch::Item>();
        if (watchOfThread != nullptr) watchOfThread->_last = item;
        Start(std::move(work), std::move(item));
    });
}

void RunInBackground(std::function<void()> work) { Start(std::move(work), nullptr); }

Failure EndedThread() {
    try {
        throw authentication::ThreadErrorException("Unexpected thread termination");
    } catch (...) {
        return DescribeCurrentException();
    }
}

bool WorkStillRuns() { return running != 0; }

QueryWatch::QueryWatch(int timeoutSeconds) : _timeoutSeconds(timeoutSeconds) { watchOfThread = this; }

QueryWatch::~QueryWatch() { watchOfThread = nullptr; }

bool QueryWatch::IsStale() const {
    constexpr auto kClockGrain = std::chrono::milliseconds(1);
    constexpr auto kLastSteps = std::chrono::seconds(1);
    if (_last == nullptr) return true;
    const auto timeout = std::chrono::seconds(_timeoutSeconds);
    if (_last->Age() >= timeout - kClockGrain) return true;
    return !_last->EndsBefore(_last->started + timeout + kLastSteps);
}

}  // namespace nimbrel::nimauthctl
