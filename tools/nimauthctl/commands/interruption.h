// What a command that was interrupted says of the host.

#ifndef NIMAUTHCTL_COMMANDS_INTERRUPTION_H_
#define NIMAUTHCTL_COMMANDS_INTERRUPTION_H_

#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/progress.h"

namespace nimbrel::nimauthctl {

// Asks the directory once more, for a few seconds at most, and throws `InterruptedFailure` with the host's state.
[[noreturn]] void TellInterruption(const Interrupted& interruption, const StorePointer& store, Progress& progress,
                                   const Invocation& invocation);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_INTERRUPTION_H_
