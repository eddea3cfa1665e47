#include "ldap_library.h"

#include <ldap.h>
#include <pthread.h>
#include <signal.h>

#include <condition_variable>
#include <mutex>

#include "addirectory/ad_error.h"
#include "gate.h"

namespace nimbrel::ad {
namespace {

constexpr std::chrono::seconds kLongestForkWait{2};

struct Start {
    std::mutex lock;  // guards what follows
    std::condition_variable ended;
    bool isRunning = false;
    bool isReady = false;
    bool isLost = false;  // in a child that was made while it ran
};

// Never destroyed: the thread may outlive everything else.
Start& TheStart() {
    static auto* start = new Start;  // lives as long as the process
    return *start;
}

void* RunStart(void*) {
    LDAP* handle = nullptr;
    const bool ready = ldap_create(&handle) == LDAP_SUCCESS;
    if (ready) {
        ldap_destroy(handle);
    }
    Start& start = TheStart();
    const std::lock_guard guard(start.lock);
    start.isReady = ready;
    start.isRunning = false;
    start.ended.notify_all();
    return nullptr;
}

// Whoever waits for the start has stepped outside the gate, which a fork closes as well: neither waits for the other.
void AwaitBeforeFork() {
    Start& start = TheStart();
    std::unique_lock guard(start.lock);
    start.ended.wait_for(guard, kLongestForkWait, [&] { return !start.isRunning; });
    static_cast<void>(guard.release());  // unlocked on both sides
}

void GoOnInParent() { TheStart().lock.unlock(); }

void GoOnInChild() {
    Start& start = TheStart();
    start.isLost = start.isRunning;
    start.lock.unlock();
}

// Signals stay with the process's own threads.
bool StartThread() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread = {};
    const bool started = pthread_create(&thread, nullptr, RunStart, nullptr) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started) {
        pthread_detach(thread);
    }
    return started;
}

}  // namespace

void AwaitLdapLibrary(const Deadline& deadline) {
    static const bool watchesForks = pthread_atfork(AwaitBeforeFork, GoOnInParent, GoOnInChild) == 0;
    Start& start = TheStart();
    const OutsideGate waiting;
    std::unique_lock guard(start.lock);
    if (start.isReady) {
        return;
    }
    if (start.isLost) {
        throw AdError(kStatusInternalError,
                      "This process was forked while the LDAP library started; it has to exec first");
    }
    start.isRunning = start.isRunning || (watchesForks && StartThread());
    if (!start.isRunning) {
        throw AdError(kStatusNotEnoughMemory, "The LDAP library cannot be started: there is no thread for it");
    }
    start.ended.wait_for(guard, deadline.Remaining(), [&] { return start.isReady || !start.isRunning; });
    if (!start.isReady && !start.isRunning) {
        throw AdError(kStatusInternalError, "The LDAP library cannot be started");
    }
    if (!start.isReady) {
        throw AdError(kStatusNoSuchDomain, "The LDAP library waits for the look-up of this host's own name");
    }
}

}  // namespace nimbrel::ad
