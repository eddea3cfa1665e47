#ifndef NIMBREL_EMBEDDED_REHEARSE_H_
#define NIMBREL_EMBEDDED_REHEARSE_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "pluginkit/cancellation.h"

namespace nimbrel::embedded {

// Does what is rehearsed for the operation: counts the call, waits, and gives the status or value to answer with. Unset
// when the call shall do its work. A directory that cannot be read rehearses nothing.
//
// A call that a rehearsal makes wait holds nothing while it waits: no lock, no transaction, no open file, and thread
// cancellation as the caller had it.
std::optional<std::int64_t> Rehearse(std::string_view operation, const kit::CancellationShield& shield);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_REHEARSE_H_
