#include "exit_gate.h"

#include <openssl/crypto.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace nimbrel::embedded {
namespace {

// The number of computations inside, and a bit that says that no further one may enter. Needs no destruction.
constexpr std::uint32_t kClosed = 0x8000'0000U;
std::atomic<std::uint32_t> inside = 0;

// This thread's share of them: a signal handler may exit or fork in the middle of a computation. Of the model that needs
// no memory at the first use.
thread_local std::uint32_t insideHere __attribute__((tls_model("initial-exec"))) = 0;

constexpr std::chrono::seconds kLongestWait{10};
constexpr std::chrono::milliseconds kPause{1};

// In this order, and entering in the other: a handler in between never waits for its own thread.
void Leave() {
    --inside;
    --insideHere;
}

// Runs first in OpenSSL's own exit handler, before anything is freed. What this thread itself computes never goes on.
void CloseAndWait() {
    inside |= kClosed;
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    while ((inside & ~kClosed) > insideHere && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPause);
    }
}

// The other threads do not exist in the child and never leave.
void ForgetOtherThreads() { inside = insideHere; }

bool Install() {
    return pthread_atfork(nullptr, nullptr, ForgetOtherThreads) == 0 && OPENSSL_atexit(CloseAndWait) == 1;
}

}  // namespace

ExitGate::ExitGate() {
    static const bool installed = Install();
    ++insideHere;
    _open = (inside++ & kClosed) == 0 && installed;
    if (!_open) {
        Leave();
    }
}

ExitGate::~ExitGate() {
    if (_open) {
        Leave();
    }
}

}  // namespace nimbrel::embedded
