#include "fork_gate.h"

#include <pthread.h>

#include "embeddeddirectory/directory_error.h"

namespace nimbrel::embedded {
namespace {

// Those inside hold it shared, a fork holds it alone and goes first. Needs no destruction.
constexpr pthread_rwlock_t kFresh = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
pthread_rwlock_t gate = kFresh;

void Close() { pthread_rwlock_wrlock(&gate); }
void Open() { pthread_rwlock_unlock(&gate); }

// The lock also remembers threads that wait for the fork to end; in the child they do not exist.
void OpenInChild() {
    Open();
    gate = kFresh;
}

}  // namespace

ForkGate::ForkGate() {
    static const bool installed = pthread_atfork(Close, Open, OpenInChild) == 0;
    if (!installed || pthread_rwlock_rdlock(&gate) != 0) {
        throw DirectoryError(kStatusInternalError, "The embedded directory cannot be protected from forks");
    }
}

ForkGate::~ForkGate() { pthread_rwlock_unlock(&gate); }

}  // namespace nimbrel::embedded
