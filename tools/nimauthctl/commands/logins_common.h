// What the commands of `nimauthctl logins` have in common.

#ifndef NIMAUTHCTL_COMMANDS_LOGINS_COMMON_H_
#define NIMAUTHCTL_COMMANDS_LOGINS_COMMON_H_

#include <string>
#include <vector>

#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/provider_modules.h"
#include "tools/nimauthctl/command.h"
#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {

// The configured provider's modules. Throws what loading the provider throws.
logins::ProviderModules ConfiguredModules();

// The names of every --services option, each a list with commas.
std::vector<std::string> NamedServices(const Invocation& invocation);

// Takes the journal's lock, finishes what an earlier call left behind, and tells of it in notes; also of entries that
// cannot be read.
void Recover(logins::Journal& journal, Report& report);

// What is known of a recorded change, as one row.
void ShowEntry(const logins::Entry& entry, Report& report);

[[noreturn]] void ThrowAsToolError(const logins::LoginsError& error);

// Runs the work and translates its `LoginsError`.
template <typename Work>
ExitCode Translated(Work work) try {
    return work();
} catch (const logins::LoginsError& error) {
    ThrowAsToolError(error);
}

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_LOGINS_COMMON_H_
