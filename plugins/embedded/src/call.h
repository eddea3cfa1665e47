// The frame around every operation of the table: rehearsal first, then the work, and no exception over the C border.
//
// A call that a rehearsal makes wait holds nothing while it waits: no lock, no transaction, no open file, and thread
// cancellation as the caller had it. At all other times cancellation is put off, because SQLite cannot be left
// half-way.

#ifndef NIMBREL_EMBEDDED_CALL_H_
#define NIMBREL_EMBEDDED_CALL_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "embeddeddirectory/host.h"
#include "pluginkit/cancellation.h"

namespace nimbrel::embedded {

// Does what is rehearsed for the operation: counts the call, waits, and gives the status or value to answer with. Unset
// when the call shall do its work. A directory that cannot be read rehearses nothing.
std::optional<std::int64_t> Rehearse(std::string_view operation, const kit::CancellationShield& shield);

// The status of the exception being handled: a `DirectoryError`'s own, 8 for exhausted memory, 1359 for anything else.
// Logs it.
std::uint32_t StatusOfCurrentException() noexcept;

// The answer of an operation with a status; `work` takes the host.
template <class Work>
std::uint32_t AnswerStatus(std::string_view operation, const Work& work) {
    const kit::CancellationShield shield;
    if (const auto rehearsed = Rehearse(operation, shield)) {
        return static_cast<std::uint32_t>(*rehearsed);
    }
    try {
        work(Host());
        return kStatusSuccess;
    } catch (...) {
        return StatusOfCurrentException();
    }
}

// The answer of an operation with a value.
template <class Work>
std::int32_t AnswerValue(std::string_view operation, std::int32_t fault, const Work& work) {
    const kit::CancellationShield shield;
    if (const auto rehearsed = Rehearse(operation, shield)) {
        return static_cast<std::int32_t>(*rehearsed);
    }
    try {
        return work(Host());
    } catch (...) {
        StatusOfCurrentException();  // for the log: there is no status to answer with
        return fault;
    }
}

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_CALL_H_
