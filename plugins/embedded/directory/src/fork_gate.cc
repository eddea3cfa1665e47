#include "fork_gate.h"

#include <pthread.h>

#include <atomic>
#include <ctime>

#include "embeddeddirectory/directory_error.h"

namespace nimbrel::embedded {
namespace {

// Those inside hold it shared, a fork holds it alone and goes first. Needs no destruction.
constexpr pthread_rwlock_t kFresh = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
pthread_rwlock_t gate = kFresh;

constexpr time_t kLongestWaitSeconds = 60;

// This thread is inside: a signal handler forks in the middle of an operation. Of the model that needs no memory at the
// first use.
thread_local bool insideHere __attribute__((tls_model("initial-exec"))) = false;
// This thread's fork holds the gate.
thread_local bool forks __attribute__((tls_model("initial-exec"))) = false;
// In a child that was forked past the gate.
std::atomic<bool> spoiled = false;

// By the clock that nobody sets.
void Close() {
    struct timespec end = {};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += kLongestWaitSeconds;
    forks = !insideHere && pthread_rwlock_clockwrlock(&gate, CLOCK_MONOTONIC, &end) == 0;
}

void Open() {
    if (forks) {
        pthread_rwlock_unlock(&gate);
    }
    forks = false;
}

// The lock also remembers threads that wait for the fork to end; in the child they do not exist.
void OpenInChild() {
    if (!forks) {
        spoiled = true;
    }
    Open();
    if (!insideHere) {
        gate = kFresh;
    }
}

[[noreturn]] void Refuse() {
    throw DirectoryError(kStatusInternalError, "The embedded directory cannot be protected from forks");
}

}  // namespace

ForkGate::ForkGate() {
    static const bool installed = pthread_atfork(Close, Open, OpenInChild) == 0;
    if (!installed || spoiled) {
        Refuse();
    }
    // First: a handler that forks before the next line is done must not wait for this thread.
    insideHere = true;
    if (pthread_rwlock_rdlock(&gate) != 0) {
        insideHere = false;
        Refuse();
    }
}

ForkGate::~ForkGate() {
    pthread_rwlock_unlock(&gate);
    insideHere = false;
}

}  // namespace nimbrel::embedded
