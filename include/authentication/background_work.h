// Work in the background, and waiting for it with a time-out.
//
// A directory query may hang on the network for longer than its caller can. The directory store therefore runs each
// query as a work item in the background and waits for a `RequestState` for as long as its time-out allows.
//
// By default every work item gets a detached thread of its own. A host process that has a pool installs it once, before
// its first query:
//
//     NimauthThreadUtil::SetScheduler([&pool](std::function<void()> work) { pool.Post(std::move(work)); });

#ifndef NIMBREL_AUTHENTICATION_BACKGROUND_WORK_H_
#define NIMBREL_AUTHENTICATION_BACKGROUND_WORK_H_

#include <pthread.h>

#include <functional>
#include <memory>

#include "authentication/exceptions.h"
#include "authentication/export.h"

namespace nimbrel::authentication {

// Runs work items in the background. Only static operations.
class NIMAUTH_EXPORT NimauthThreadUtil {
 public:
    NimauthThreadUtil() = delete;

    // Installs the scheduler of the whole process, or with an empty function brings back a thread per work item.
    //
    // The scheduler must see to it that each work item runs once, on whatever thread, in whatever order, except for
    // one: it must never run the item on the thread that calls it, because the directory store's table of requests is
    // locked meanwhile and the item takes that lock. For the same reason it must not wait for another item to end, nor for
    // room in a queue that only a running item can make, and must not ask the store. It may throw if it cannot take the
    // item; the query then fails with that exception.
    //
    // Threads: not locked. Call it at start-up, before the first query, and not while queries run.
    static void SetScheduler(std::function<void(std::function<void()>)> scheduler);

    // Hands `work` to the installed scheduler or starts a detached thread for it, and returns at once. On a thread of
    // its own an empty `work` ends the process, as does an exception that leaves it.
    //
    // Throws `ThreadErrorException` if no thread can be started; `work` is not run then.
    static void ScheduleFunctor(std::function<void()> work);
};

// The completion of one request: done or not, and the error it ended with. It carries no result; the answer travels
// through `ADCache`.
//
// Threads: any number of threads may wait at once; exactly one calls `Done`, once. Shared by `std::shared_ptr` between
// the store's table, the worker and every waiter; the last one frees it.
class NIMAUTH_EXPORT RequestState {
 public:
    RequestState();
    RequestState(const RequestState&) = delete;
    RequestState& operator=(const RequestState&) = delete;
    ~RequestState();

    // Marks the request finished and wakes every waiter. Takes ownership of `error`; null means success and leaves an
    // error stored earlier in place.
    void Done(std::unique_ptr<Exception>&& error);

    // Blocks until the request is finished or `seconds` have passed on the real-time clock; zero or less never blocks.
    // A request that is finished already returns or throws at once, whatever the time.
    //
    // Throws the stored error with its own class if the request failed (every waiter gets an equal one),
    // `ProviderCallTimedOutException` if time ran out (the request keeps running), `ThreadErrorException` if the wait
    // itself failed.
    void WaitResult(int seconds);

 private:
    int _done = 0;
    std::unique_ptr<Exception> _error;
    pthread_mutex_t _mutex;  // guards the two above; never held while an error is thrown
    pthread_cond_t _condition;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_BACKGROUND_WORK_H_
