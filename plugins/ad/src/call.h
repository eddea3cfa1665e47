// The frame around every operation of the table: no exception crosses the C border, a fork or an exit of the process
// does not fall into the work, and the calling thread is not cancelled in the middle of it.

#ifndef NIMBREL_AD_CALL_H_
#define NIMBREL_AD_CALL_H_

#include <cstdint>

#include "addirectory/host.h"
#include "pluginkit/cancellation.h"

namespace nimbrel::ad {

// The status of the exception being handled: an `AdError`'s own, 8 for exhausted memory, 1359 for anything else. Logs it.
std::uint32_t StatusOfCurrentException() noexcept;

// Runs work inside the gate; `work` takes the host with the settings of this moment.
using HostWork = void (*)(void* work, const Host& host);
void RunWithHost(HostWork run, void* work);

template <class Work>
void WithHost(Work work) {
    RunWithHost([](void* one, const Host& host) { (*static_cast<Work*>(one))(host); }, &work);
}

// The answer of an operation with a status.
template <class Work>
std::uint32_t AnswerStatus(const Work& work) {
    const kit::CancellationShield shield;
    try {
        WithHost(work);
        return kStatusSuccess;
    } catch (...) {
        return StatusOfCurrentException();
    }
}

// The answer of an operation with a value.
template <class Work>
std::int32_t AnswerValue(std::int32_t fault, const Work& work) {
    const kit::CancellationShield shield;
    try {
        std::int32_t value = fault;
        WithHost([&](const Host& host) { value = work(host); });
        return value;
    } catch (...) {
        StatusOfCurrentException();  // for the log: there is no status to answer with
        return fault;
    }
}

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_CALL_H_
