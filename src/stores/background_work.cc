#include "authentication/background_work.h"

#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "foundation/mutex_guard.h"

namespace nimbrel::authentication {
namespace {

using WorkItem = std::function<void()>;
using Scheduler = std::function<void(WorkItem)>;

// Never destroyed: a query may be started while the process exits.
Scheduler& InstalledScheduler() {
    static auto& scheduler = *std::make_unique<Scheduler>().release();
    return scheduler;
}

// The text starts `rc` characters into the literal; the code itself is not appended. Callers match on these texts, so
// they stay: rc 11 reads "Thread Error: ate failed. RC=". Past the end of the literal nothing is left.
ThreadErrorException AdvancedTextError(const char* literal, int rc) {
    const std::size_t length = std::strlen(literal);
    const auto advance = static_cast<std::size_t>(rc);
    return ThreadErrorException(advance < length ? literal + advance : "");
}

// The holder frees the work item whichever way the thread ends, a forced unwind included.
extern "C" void* RunWorkItem(void* argument) {
    const std::unique_ptr<WorkItem> work(static_cast<WorkItem*>(argument));
    (*work)();
    return nullptr;
}

timespec DeadlineIn(int seconds) {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return {now.tv_sec + seconds, now.tv_usec * 1000};
}

}  // namespace

void NimauthThreadUtil::SetScheduler(std::function<void(std::function<void()>)> scheduler) {
    InstalledScheduler() = std::move(scheduler);
}

void NimauthThreadUtil::ScheduleFunctor(std::function<void()> work) {
    if (const Scheduler& scheduler = InstalledScheduler()) {
        scheduler(std::move(work));
        return;
    }
    auto holder = std::make_unique<WorkItem>(std::move(work));
    pthread_t thread = {};
    if (const int rc = pthread_create(&thread, nullptr, RunWorkItem, holder.get()); rc != 0) {
        throw AdvancedTextError("pthread_create failed. RC=", rc);
    }
    static_cast<void>(holder.release());  // the thread owns it now
    pthread_detach(thread);
}

RequestState::RequestState() {
    pthread_mutex_init(&_mutex, nullptr);
    pthread_cond_init(&_condition, nullptr);
}

RequestState::~RequestState() {
    pthread_cond_destroy(&_condition);
    pthread_mutex_destroy(&_mutex);
}

void RequestState::Done(std::unique_ptr<Exception>&& error) {
    const MutexGuard guard(_mutex);
    _done = 1;
    if (error != nullptr) _error = std::move(error);
    pthread_cond_broadcast(&_condition);
}

void RequestState::WaitResult(int seconds) {
    const timespec deadline = DeadlineIn(seconds);
    int rc = 0;
    {
        const MutexGuard guard(_mutex);
        while (_done == 0 && rc == 0) rc = pthread_cond_timedwait(&_condition, &_mutex, &deadline);
    }
    // Once the wait has seen the request done nothing changes the error any more, so it is read without the lock.
    if (rc == 0) {
        if (_error != nullptr) _error->Throw();
        return;
    }
    if (rc == ETIMEDOUT) throw ProviderCallTimedOutException("Provider call timed out.");
    throw AdvancedTextError("pthread_cond_timedwait failed. RC=", rc);
}

}  // namespace nimbrel::authentication
