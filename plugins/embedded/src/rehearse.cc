#include "rehearse.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>

#include "embeddeddirectory/host.h"

namespace nimbrel::embedded {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// How soon a waiting call notices that its rehearsal has been cleared.
constexpr milliseconds kLook{200};

std::optional<Directory::TakenRehearsal> Take(std::string_view operation) noexcept {
    try {
        return Host().TakeRehearsal(operation);
    } catch (...) {
        return std::nullopt;  // the work itself meets the same fault and reports it
    }
}

bool StillRehearsed(std::int64_t ticket) noexcept {
    try {
        return Host().StillRehearsed(ticket);
    } catch (...) {
        return false;
    }
}

// A cancellation point; signal handlers run and the sleep goes on.
void SleepUntil(steady_clock::time_point end) {
    const auto sinceStart = std::chrono::duration_cast<std::chrono::nanoseconds>(end.time_since_epoch()).count();
    struct timespec until = {};
    until.tv_sec = static_cast<time_t>(sinceStart / 1'000'000'000);
    until.tv_nsec = static_cast<long>(sinceStart % 1'000'000'000);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

void Wait(milliseconds delay, std::int64_t ticket, const kit::CancellationShield& shield) {
    const auto end = steady_clock::now() + delay;
    do {
        shield.Lower();
        SleepUntil(std::min(end, steady_clock::now() + kLook));
        shield.Raise();
    } while (steady_clock::now() < end && StillRehearsed(ticket));
}

}  // namespace

std::optional<std::int64_t> Rehearse(std::string_view operation, const kit::CancellationShield& shield) {
    const auto taken = Take(operation);
    if (!taken) {
        return std::nullopt;
    }
    const RehearsalInfo& rehearsal = taken->rehearsal;
    if (rehearsal.delayMilliseconds > 0) {
        Wait(milliseconds(rehearsal.delayMilliseconds), taken->ticket, shield);
    }
    if (rehearsal.status) {
        return *rehearsal.status;
    }
    return rehearsal.value ? std::optional<std::int64_t>(*rehearsal.value) : std::nullopt;
}

}  // namespace nimbrel::embedded
