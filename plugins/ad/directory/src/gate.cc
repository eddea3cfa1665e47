#include "gate.h"

#include <openssl/crypto.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <ctime>

#include "addirectory/ad_error.h"

namespace nimbrel::ad {
namespace {

// Those inside hold it shared; a fork, and for good the end of the process, hold it alone and go first. Needs no
// destruction.
constexpr pthread_rwlock_t kFresh = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
pthread_rwlock_t gate = kFresh;
std::atomic<bool> exiting = false;
thread_local bool isInside = false;

void CloseForFork() { pthread_rwlock_wrlock(&gate); }
void OpenAfterFork() { pthread_rwlock_unlock(&gate); }

// The lock also remembers threads that wait for the fork to end; in the child they do not exist.
void OpenInChild() {
    OpenAfterFork();
    gate = kFresh;
}

void CloseForGood() {
    struct timespec end = {};
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += 2;
    exiting = true;
    pthread_rwlock_timedwrlock(&gate, &end);
}

// Exit handlers run before the destructors of shared objects, those of the Kerberos library among them, and in the reverse
// order: libcrypto's, which takes away what those inside use, is to come after this one.
bool Install() {
    OPENSSL_init_crypto(0, nullptr);
    return pthread_atfork(CloseForFork, OpenAfterFork, OpenInChild) == 0 && std::atexit(CloseForGood) == 0;
}

void Enter() {
    pthread_rwlock_rdlock(&gate);
    isInside = true;
}

void Leave() {
    isInside = false;
    pthread_rwlock_unlock(&gate);
}

}  // namespace

InsideGate::InsideGate() {
    static const bool installed = Install();
    if (!installed || exiting) {
        throw AdError(kStatusInternalError, "The process is exiting");
    }
    Enter();
}

InsideGate::~InsideGate() { Leave(); }

OutsideGate::OutsideGate() : _wasInside(isInside) {
    if (_wasInside) {
        Leave();
    }
}

OutsideGate::~OutsideGate() {
    if (_wasInside) {
        while (exiting) {
            pause();  // nothing that this thread would touch can be relied on any more
        }
        Enter();
    }
}

}  // namespace nimbrel::ad
