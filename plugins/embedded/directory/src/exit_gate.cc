#include "exit_gate.h"

#include <openssl/crypto.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace nimbrel::embedded {
namespace {

// The number of computations inside, and a bit that says that no further one may enter. Needs no destruction.
constexpr std::uint32_t kClosed = 0x8000'0000U;
std::atomic<std::uint32_t> inside = 0;

void Leave() {
    if ((inside.fetch_sub(1) & kClosed) != 0) {
        inside.notify_all();
    }
}

// Runs first in OpenSSL's own exit handler, before anything is freed.
void CloseAndWait() {
    std::uint32_t now = inside.fetch_or(kClosed) | kClosed;
    while (now != kClosed) {
        inside.wait(now);
        now = inside.load();
    }
}

// The other threads do not exist in the child and never leave.
void ForgetOtherThreads() { inside.store(0); }

bool Install() {
    return pthread_atfork(nullptr, nullptr, ForgetOtherThreads) == 0 && OPENSSL_atexit(CloseAndWait) == 1;
}

}  // namespace

ExitGate::ExitGate() {
    static const bool installed = Install();
    _open = installed && (inside.fetch_add(1) & kClosed) == 0;
    if (installed && !_open) {
        Leave();
    }
}

ExitGate::~ExitGate() {
    if (_open) {
        Leave();
    }
}

}  // namespace nimbrel::embedded
