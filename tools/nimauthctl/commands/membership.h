// What joining, leaving and looking have in common.

#ifndef NIMAUTHCTL_COMMANDS_MEMBERSHIP_H_
#define NIMAUTHCTL_COMMANDS_MEMBERSHIP_H_

#include <memory>
#include <string>
#include <vector>

#include "authentication/directory_cache.h"
#include "authentication/directory_store.h"
#include "tools/nimauthctl/command.h"
#include "tools/nimauthctl/password.h"
#include "tools/nimauthctl/questions.h"

namespace nimbrel::nimauthctl {

using StorePointer = std::shared_ptr<authentication::ActiveDirectoryStore>;

// The directory store with the command line's time-out. Throws what its construction throws.
StorePointer OpenStore(const Invocation& invocation);

// The store's configuration: the domain, the machine account, the preferred controllers.
Answer<authentication::ActiveDirectoryStoreConfiguration> AskConfiguration(
    const authentication::ActiveDirectoryStore& store, const Invocation& invocation);

// How a look at the directory ends: with the first failure, else with whether an answer is stale.
ExitCode ResultOf(const Report& report);

// The options that say where a password comes from.
std::vector<Option> PasswordOptions();

// Reads the password of `user` as these options ask.
void ReadPassword(Password& password, const std::string& user, const Invocation& invocation, bool confirm = false);

// Asks a query of the library and, with --verbose, tells how long the answer took.
template <typename Query>
auto AskTraced(const Invocation& invocation, const std::string& what, Query query) {
    invocation.Trace("asking for " + what);
    const auto begin = std::chrono::steady_clock::now();
    auto answer = Ask(invocation.Global().timeoutSeconds, std::move(query));
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    invocation.Trace(what + (answer.stale ? ": no answer after " : ": answered after ") + std::to_string(took.count()) +
                     " ms");
    return answer;
}

// Compares names as domains are compared: without regard to the case of ASCII letters.
bool SameName(const std::string& a, const std::string& b);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_MEMBERSHIP_H_
