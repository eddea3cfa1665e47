// Something that happens once, and waiting for it. Tests wait on these, never on the clock.

#ifndef NIMAUTH_TESTS_UNIT_EVENT_H_
#define NIMAUTH_TESTS_UNIT_EVENT_H_

#include <condition_variable>
#include <mutex>

class Event {
 public:
    void Set() {
        const std::lock_guard<std::mutex> guard(_mutex);
        _set = true;
        _condition.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(_mutex);
        _condition.wait(lock, [this] { return _set; });
    }

 private:
    std::mutex _mutex;
    std::condition_variable _condition;
    bool _set = false;
};

// A number that other threads raise.
class Counter {
 public:
    void Increment() {
        const std::lock_guard<std::mutex> guard(_mutex);
        ++_count;
        _condition.notify_all();
    }
    void WaitFor(int count) {
        std::unique_lock<std::mutex> lock(_mutex);
        _condition.wait(lock, [this, count] { return _count >= count; });
    }

 private:
    std::mutex _mutex;
    std::condition_variable _condition;
    int _count = 0;
};

#endif  // NIMAUTH_TESTS_UNIT_EVENT_H_
